// hasObjectMagic, which distinguishes objects from C strings: an operand may be either.

#include <random>

#include "conformance/guarded_texts.h"
#include "conformance/operations.h"
#include "conformance/requirement.h"

namespace quen::conformance {

namespace {

constexpr std::size_t kLongestText = 4096;
constexpr int kRandomTexts = 10'000;
constexpr std::size_t kLongestRandomText = 64;

void requireMagic(void* object, const std::string& what) {
  require(operations::hasObjectMagic(made(object, what)), what + " has none");
}

// All lengths, and thereby all alignments.
void requireNoMagicUpToThePagesEnd(const Adapter&) {
  GuardedTexts texts;
  for (std::size_t length = 0; length <= kLongestText; ++length) {
    char* text = texts.place(std::string(length, 'x'));
    require(!operations::hasObjectMagic(text),
            "a text of " + std::to_string(length) + " bytes has it");
  }
}

void requireNothingReadBehindTheText(const Adapter&) {
  GuardedTexts texts;
  for (std::size_t length = 0; length <= kLongestText; ++length) {
    static_cast<void>(operations::hasObjectMagic(texts.place(std::string(length, 'x'))));
    require(!GuardedTexts::wasReadBehind(),
            "memory behind a text of " + std::to_string(length) + " bytes was read");
  }
}

// The same random texts in every run.
void requireNoMagicInRandomTexts(const Adapter&) {
  GuardedTexts texts;
  std::mt19937 random;  // NOLINT(cert-msc32-c,cert-msc51-cpp): the seed is constant intentionally
  std::uniform_int_distribution<std::size_t> lengths(0, kLongestRandomText);
  std::uniform_int_distribution<int> bytes(1, 255);
  for (int i = 0; i < kRandomTexts; ++i) {
    std::string text(lengths(random), '\0');
    for (char& byte : text) byte = static_cast<char>(bytes(random));
    require(!operations::hasObjectMagic(texts.place(text)), shown(text) + " has it");
  }
}

}  // namespace

Requirements magicRequirements() {
  return {
      {"hasObjectMagic sees an object in whatever the language makes",
       [](const Adapter& adapter) {
         requireMagic(adapter.newPath("a"), "a path object");
         requireMagic(adapter.newPath(""), "a path object of the empty path");
         requireMagic(adapter.newPathWithoutText(), "a path object without a path");
         requireMagic(adapter.newFolderPath("a"), "a FolderPath");
         requireMagic(adapter.newString(""), "an empty String");
         requireMagic(adapter.newString("a text that is a little longer than others"), "a String");
         requireMagic(adapter.newByteArray({}), "an empty Byte[]");
         requireMagic(adapter.newByteArray({1, 2, 3}), "a Byte[]");
         requireMagic(adapter.newOtherObject(), "the other object");
       }},

      {"hasObjectMagic sees an object in whatever the operations make",
       [](const Adapter&) {
         requireMagic(operations::allocString("a"), "a String");
         requireMagic(operations::allocPathString("a", false), "the String of a path");
         requireMagic(operations::allocTypedPathObjectFromPath("a", true, false, false),
                      "a path object");
         requireMagic(operations::allocTypedPathObjectFromPath("a", false, false, false),
                      "a FolderPath");
         requireMagic(operations::allocObject("ArrayList"), "an ArrayList");
       }},

      {"hasObjectMagic sees no object in null",
       [](const Adapter&) { require(!operations::hasObjectMagic(nullptr), "null is an object"); }},

      {"hasObjectMagic sees no object in texts of 0 to 4096 bytes", requireNoMagicUpToThePagesEnd},

      {"hasObjectMagic reads nothing behind the NUL of such a text",
       requireNothingReadBehindTheText},

      {"hasObjectMagic sees no object in texts of random bytes", requireNoMagicInRandomTexts},

      {"hasObjectMagic sees no object in the text of a path object",
       [](const Adapter& adapter) {
         for (const std::size_t length : {1U, 7U, 15U, 16U, 100U, 5000U}) {
           void* path = made(adapter.newPath(std::string(length, 'x')), "the path object");
           const char* text = operations::filePathFromObject(path);
           require(text != nullptr, "the text is null");
           require(!operations::hasObjectMagic(const_cast<char*>(text)),
                   "a text of " + std::to_string(length) + " bytes has it");
         }
       }},
  };
}

}  // namespace quen::conformance
