// All 2^32 windows of four bytes at places of the validator's blocks, against an automaton made
// from the table of well-formed sequences:
//
//     quen_io_windows [STEP]
//
// tries every STEP-th of the 65,536 first two bytes, each with all last two bytes.
// tests/contents/run_windows runs it for both widths of vectors.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "contents/utf8.h"
#include "tests/support/utf8_model.h"

namespace {

// What the model expects after some bytes of the window.
struct State {
  bool fault = false;
  std::size_t left = 0;  // continuation bytes that are still due
  unsigned char least = 0x80, most = 0xBF;
};

State after(const State& state, unsigned char byte) {
  if (state.fault) return state;
  if (state.left > 0) return {byte < state.least || byte > state.most, state.left - 1};
  for (const quen::tests::WellFormed& row : quen::tests::kWellFormed) {
    if (byte < row.firstLeast || byte > row.firstMost) continue;
    if (row.length == 1) return {};
    return {false, row.length - 1, row.secondLeast, row.secondMost};
  }
  return {true};
}

struct Place {
  std::size_t size;
  std::size_t offset;
  bool allTests;  // with a four-byte sequence elsewhere in each block, so that no test is left out
};

// A short text, and one of two blocks: 3 to 514, and 515 to the end.
std::vector<Place> places() {
  std::vector<Place> all;
  for (const bool allTests : {false, true}) {
    for (const std::size_t offset : {0U, 30U, 56U}) all.push_back({60, offset, allTests});
    for (const std::size_t offset : {3U, 259U, 511U, 513U, 515U, 611U}) {
      all.push_back({615, offset, allTests});
    }
  }
  return all;
}

std::string textFor(const Place& place) {
  std::string text(place.size, 'a');
  if (!place.allTests) return text;
  for (const std::size_t at : {20U, 100U, 560U}) {
    if (at + 4 <= text.size()) text.replace(at, 4, "\xF0\x9F\x98\x80");
  }
  return text;
}

// Whether the validator accepts the text. Of a long one only the blocks are tested: locating a
// fault takes longer.
bool isAccepted(const std::string& text) {
  std::uint64_t fault = 0;
  if (text.size() < 100) return quen::io::validateUtf8(text, fault);
  return quen::io::passWellFormed(text, 0) == text.size();
}

// Tries all windows with these first two bytes.
bool agrees(const Place& place, std::string& text, unsigned first, unsigned second) {
  const auto set = [&](std::size_t index, unsigned byte) {
    text[place.offset + index] = static_cast<char>(byte);
    return static_cast<unsigned char>(byte);
  };
  const State afterTwo = after(after({}, set(0, first)), set(1, second));
  for (unsigned third = 0; third < 256; ++third) {
    const State afterThree = after(afterTwo, set(2, third));
    for (unsigned fourth = 0; fourth < 256; ++fourth) {
      const State state = after(afterThree, set(3, fourth));
      const bool wellFormed = !state.fault && state.left == 0;
      if (isAccepted(text) == wellFormed) continue;
      std::printf("%02X %02X %02X %02X at %zu of %zu bytes is %swell-formed\n", first, second,
                  third, fourth, place.offset, place.size, wellFormed ? "" : "not ");
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  const unsigned step = count > 1 ? static_cast<unsigned>(std::atoi(arguments[1])) : 1;
  if (step == 0) return 2;
  std::atomic<unsigned> next = 0;
  std::atomic<bool> agreed = true;
  const auto work = [&] {
    for (unsigned pair = next.fetch_add(step); pair < 65'536 && agreed;
         pair = next.fetch_add(step)) {
      for (const Place& place : places()) {
        std::string text = textFor(place);
        if (!agrees(place, text, pair >> 8, pair & 0xFF)) agreed = false;
      }
    }
  };
  std::vector<std::thread> threads;
  for (unsigned number = 0; number < std::thread::hardware_concurrency(); ++number) {
    threads.emplace_back(work);
  }
  for (std::thread& thread : threads) thread.join();
  return agreed ? 0 : 1;
}
