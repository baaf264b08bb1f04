// Every entry point with little memory, by the kernel's limit of the address space: what the heap
// has is used up, and what the calls get is given in steps. Unlike in exhausted_memory_test.cpp,
// the C library runs out of it as well, and several threads at once.

#include "tests/support/little_memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "quen/io/entry_points.h"
#include "runtime/small/host.h"
#include "tests/limits/attempts.h"
#include "tests/limits/every_entry_point.h"
#include "tests/support/boundary_test.h"
#include "tests/support/child_process.h"

namespace fs = std::filesystem;
using namespace quen::small;
using namespace quen::tests;

namespace {

// Calls an entry point with the objects and files of a Ground.
class EntryPointCaller : public Caller {
 public:
  explicit EntryPointCaller(const EntryPointCall& entry) : entry_(entry) {}

  void prepare() override {
    scope_.emplace();
    ground_.emplace(scratch);
    for (const std::string& each : {ground_->file, ground_->folder}) {
      fs::last_write_time(each, fs::file_time_type{});
    }
  }

  void call() override {
    outOfMemory_ = false;
    try {
      returned_ = entry_.make(*ground_);
    } catch (const std::bad_alloc&) {
      outOfMemory_ = true;
    }
  }

  Outcome outcome() override {
    Outcome outcome;
    outcome.outOfMemory = outOfMemory_;
    if (!outOfMemory_) outcome.result = describe(returned_);
    const auto exception = takeException();
    if (exception) outcome.raised = exception->className + ": " + exception->message;
    const std::vector<std::uint8_t> filled = byteArrayContents(ground_->destination);
    outcome.arguments = pathText(ground_->filePath).value_or("") + ' ' +
                        std::to_string(std::ranges::count(filled, std::uint8_t{0}));
    return outcome;
  }

  void release() override {
    ground_.reset();
    scope_.reset();
  }

 private:
  const EntryPointCall& entry_;
  std::optional<Scope> scope_;
  std::optional<Ground> ground_;
  Returned returned_;
  bool outOfMemory_ = false;
};

// With the arguments of a Ground, calls with a handle allocate nothing.
bool needsMemory(std::string_view name) { return !name.ends_with("Handle"); }

class LittleMemoryTest : public BoundaryTest {
 protected:
  void expectUsable() const {
    const Scope objects;
    const std::string file = scratch / "other";
    const auto handle = quen_io_FileWriter__openPath(file.c_str(), 0);
    quen_io_FileWriter__writeHandle(handle, "text");
    quen_io_FileWriter__closeHandle(handle);
    EXPECT_EQ(text(quen_io_FileReader__readAllTextPath(file.c_str())), "text");
    EXPECT_EQ(raised(), "");
  }

  // In a child process for each entry point, so that a crash is reported by its name.
  void expectAllToFailOrSucceed(std::size_t threads) const {
    for (const EntryPointCall& entry : everyEntryPoint()) {
      SCOPED_TRACE(entry.name);
      inChild([&] {
        std::vector<std::unique_ptr<Caller>> callers;
        while (callers.size() < threads) {
          callers.push_back(std::make_unique<EntryPointCaller>(entry));
        }
        const auto attempts = attempt(callers, [this] { expectUsable(); });
        for (const auto& each : attempts) checkAttempts(entry.name, each, needsMemory(entry.name));
      });
    }
  }
};

TEST_F(LittleMemoryTest, FailsAsDocumentedOrSucceeds) { expectAllToFailOrSucceed(1); }

TEST_F(LittleMemoryTest, FailsAsDocumentedOrSucceedsOnThreadsAtOnce) {
  expectAllToFailOrSucceed(4);
}

// glibc ends the process if it cannot register the destructor of a thread_local object.
TEST_F(LittleMemoryTest, LeavesAFirstRaiseOnAThreadAsBadAlloc) {
  inChild([] {
    LittleMemory::useOneHeap();
    bool outOfMemory = false;
    std::thread([&outOfMemory] {
      const NoThreadCache empty;
      const LittleMemory little(0);
      try {
        quen_io_Path__exists(nullptr);
      } catch (const std::bad_alloc&) {
        outOfMemory = true;
      }
    }).join();
    EXPECT_TRUE(outOfMemory);
  });
}

TEST_F(LittleMemoryTest, IsEnoughToEndAScope) {
  inChild([] {
    LittleMemory::useOneHeap();
    auto objects = std::make_unique<Scope>();
    for (int i = 0; i < 50'000; ++i) newString("");
    const NoThreadCache empty;
    const LittleMemory little(0);
    objects.reset();
  });
}

}  // namespace
