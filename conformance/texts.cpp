// Conversion of path texts to std::filesystem::path and back, and of bytes to Strings.

#include <filesystem>

#include "conformance/operations.h"
#include "conformance/requirement.h"

namespace fs = std::filesystem;

namespace quen::conformance {

namespace {

constexpr std::size_t kMebibyte = std::size_t{1} << 20;

// Every byte from `first` to 255.
std::string bytesFrom(int first) {
  std::string bytes;
  for (int byte = first; byte < 256; ++byte) bytes += static_cast<char>(byte);
  return bytes;
}

std::string longPath() {
  std::string path;
  while (path.size() < kMebibyte) path += "/a folder";
  return path;
}

void requireSamePath(const std::string& text) {
  requireEqual("the path", operations::runtimeFsPath(text.c_str()).native(), text);
}

// A path without a Windows root has the same text whether the flag is set or not, so that listed
// names refer to their entries.
void requireRoundTrip(bool explicitWindowsRoot) {
  for (const char* text :
       {"a", "a/b.txt", "/", "/a/b", "../a", "..", ".", "a b", "\xFF\xC3(", "~"}) {
    const std::string visible = operations::visiblePathString(fs::path(text), explicitWindowsRoot);
    requireEqual("the path of the visible text",
                 operations::runtimeFsPath(visible.c_str()).native(), text);
  }
}

void requireAgreement(const Adapter& adapter, bool explicitWindowsRoot) {
  for (const char* text : {"", "a", "a//b/", "/", "/a/../b", "C:\\a", "C:/a/b", "c:\\",
                           "\\\\server\\a", "//server/a", "a\\b", "\xFF"}) {
    const fs::path path(text);
    const std::string visible = operations::visiblePathString(path, explicitWindowsRoot);
    void* string = made(operations::allocPathString(path, explicitWindowsRoot), "the String");
    requireEqual("the String of the path " + shown(text), adapter.stringBytes(string), visible);
  }
}

void requireRootKept() {
  for (const char* text : {"C:\\a", "C:/a", "\\\\server\\share"}) {
    const fs::path path = operations::runtimeFsPath(text);
    const std::string visible = operations::visiblePathString(path, true);
    require(operations::pathHasExplicitWindowsRoot(visible.c_str()),
            shown(text) + " becomes " + shown(visible));
  }
}

void requireSameString(const Adapter& adapter, const std::string& bytes) {
  requireEqual("the String",
               adapter.stringBytes(made(operations::allocString(bytes), "the String")), bytes);
}

}  // namespace

Requirements textRequirements() {
  return {
      {"Quen_runtimeFsPath gives the empty path for null text",
       [](const Adapter&) {
         requireEqual("the path", operations::runtimeFsPath(nullptr).native(), "");
       }},

      {"Quen_runtimeFsPath gives the empty path for the empty text",
       [](const Adapter&) { requireSamePath(""); }},

      {"Quen_runtimeFsPath keeps every byte, of invalid UTF-8 too",
       [](const Adapter&) { requireSamePath(bytesFrom(1)); }},

      {"Quen_runtimeFsPath keeps a text of 1 MiB",
       [](const Adapter&) { requireSamePath(longPath()); }},

      {"Quen_runtimeFsPath keeps separators, \".\" and \"..\" as they stand",
       [](const Adapter&) {
         for (const char* text : {"a/", "a//b", "./a/.", "a/../b", "//", "/.."}) {
           requireSamePath(text);
         }
       }},

      {"Quen_visiblePathString gives the empty text for the empty path, root flag or not",
       [](const Adapter&) {
         requireEqual("without the flag", operations::visiblePathString(fs::path(), false), "");
         requireEqual("with the flag", operations::visiblePathString(fs::path(), true), "");
       }},

      {"Quen_visiblePathString gives a text that leads back to the path",
       [](const Adapter&) { requireRoundTrip(false); }},

      {"Quen_visiblePathString does so with the root flag too, when there is no Windows root",
       [](const Adapter&) { requireRoundTrip(true); }},

      {"Quen_visiblePathString keeps a drive root and a UNC root with the root flag",
       [](const Adapter&) { requireRootKept(); }},

      {"Quen_allocPathString gives a String of the text of Quen_visiblePathString",
       [](const Adapter& adapter) { requireAgreement(adapter, false); }},

      {"Quen_allocPathString gives the same text with the root flag too",
       [](const Adapter& adapter) { requireAgreement(adapter, true); }},

      {"Quen_allocPathString gives the empty String for the empty path, root flag or not",
       [](const Adapter& adapter) {
         for (const bool explicitWindowsRoot : {false, true}) {
           void* string =
               made(operations::allocPathString(fs::path(), explicitWindowsRoot), "the String");
           requireEqual("the String", adapter.stringBytes(string), "");
         }
       }},

      {"Quen_allocString makes the empty String, not null",
       [](const Adapter& adapter) { requireSameString(adapter, ""); }},

      {"Quen_allocString keeps NUL bytes",
       [](const Adapter& adapter) { requireSameString(adapter, std::string("\0a\0\0b\0", 6)); }},

      {"Quen_allocString keeps every byte, of invalid UTF-8 too",
       [](const Adapter& adapter) { requireSameString(adapter, bytesFrom(0)); }},

      {"Quen_allocString keeps line ends as they are",
       [](const Adapter& adapter) {
         requireSameString(adapter,
                           "\xEF\xBB\xBF"
                           "a\r\nb\rc\n");
       }},

      {"Quen_allocString keeps 1 MiB",
       [](const Adapter& adapter) { requireSameString(adapter, longPath()); }},

      {"Quen_allocString copies the bytes",
       [](const Adapter& adapter) {
         std::string bytes(100, 'a');
         void* string = made(operations::allocString(bytes), "the String");
         bytes.assign(100, 'b');
         requireEqual("the String", adapter.stringBytes(string), std::string(100, 'a'));
       }},
  };
}

}  // namespace quen::conformance
