// The texts of path objects, and which texts have a Windows root.

#include <array>

#include "conformance/operations.h"
#include "conformance/requirement.h"

namespace quen::conformance {

namespace {

constexpr int kManyObjects = 10'000;

void requireText(void* object, const std::string& expected) {
  const char* text = operations::filePathFromObject(made(object, "the path object"));
  requireEqual("the text", text == nullptr ? "null" : text, expected);
}

void requireWindowsRoot(bool expected, std::initializer_list<const char*> texts) {
  for (const char* text : texts) {
    require(operations::pathHasExplicitWindowsRoot(text) == expected,
            shown(text) + (expected ? " has none" : " has one"));
  }
}

// Entry points borrow the text until they return, and create objects in the meantime.
void requireTextsOutliveOtherObjects(const Adapter& adapter) {
  const std::string firstText =
      "/a/rather/long/text/that/no/object/holds/within/itself/" + std::string(200, 'x');
  void* first = made(adapter.newPath(firstText), "the path object");
  void* second = made(adapter.newPath("b"), "the path object");
  const char* borrowedFirst = operations::filePathFromObject(first);
  const char* borrowedSecond = operations::filePathFromObject(second);
  require(borrowedFirst != nullptr && borrowedSecond != nullptr, "a text is null");

  for (int i = 0; i < kManyObjects; ++i) {
    const std::string other = "other/" + std::to_string(i);
    void* object = made(adapter.newPath(other), "the path object");
    requireText(object, other);
    operations::allocString(other);
  }
  requireEqual("the long text", borrowedFirst, firstText);
  requireEqual("the short text", borrowedSecond, "b");
}

// Another thread may rename the path object while an entry point uses the text.
void requireTextOutlivesSetField(const Adapter& adapter) {
  for (const std::string& text : {std::string("short"), std::string(200, 'x')}) {
    void* path = made(adapter.newPath(text), "the path object");
    const char* borrowed = operations::filePathFromObject(path);
    if (borrowed == nullptr) throw NotMet("the text is null");
    for (const char* other : {"first", "second"}) {
      void* string = made(operations::allocString(other), "the String");
      operations::setFieldPtr(path, "_path", string);
      requireText(path, other);
    }
    requireEqual("the text", borrowed, text);
  }
}

}  // namespace

Requirements pathRequirements() {
  return {
      {"Quen_filePathFromObject gives null for null",
       [](const Adapter&) {
         const char* text = operations::filePathFromObject(nullptr);
         require(text == nullptr, "a text");
       }},

      {"Quen_filePathFromObject gives null for a path object without a path",
       [](const Adapter& adapter) {
         void* object = made(adapter.newPathWithoutText(), "the path object");
         require(operations::filePathFromObject(object) == nullptr, "a text");
       }},

      {"Quen_filePathFromObject gives null for an object that is no path object",
       [](const Adapter& adapter) {
         void* object = made(adapter.newOtherObject());
         require(operations::filePathFromObject(object) == nullptr, "a text");
       }},

      {"Quen_filePathFromObject gives the text of a path object and of a FolderPath",
       [](const Adapter& adapter) {
         requireText(adapter.newPath("a/../b"), "a/../b");
         requireText(adapter.newFolderPath("/c/"), "/c/");
       }},

      {"Quen_filePathFromObject gives the text of an object of a class below FolderPath",
       [](const Adapter& adapter) {
         void* object = adapter.newFolderSubclass("a");
         if (object == nullptr) throw Skipped("there is no class below FolderPath");
         requireText(object, "a");
       }},

      {"Quen_filePathFromObject gives null or the empty text for the empty path",
       [](const Adapter& adapter) {
         const char* text =
             operations::filePathFromObject(made(adapter.newPath(""), "the path object"));
         requireEqual("the text", text == nullptr ? "" : text, "");
       }},

      {"Quen_filePathFromObject keeps every byte, of invalid UTF-8 too",
       [](const Adapter& adapter) {
         requireText(adapter.newPath("a\xFF\xC3(\x01"), "a\xFF\xC3(\x01");
       }},

      {"Quen_filePathFromObject keeps a text of 64 KiB",
       [](const Adapter& adapter) {
         const std::string text(65536, 'x');
         requireText(adapter.newPath(text), text);
       }},

      {"Quen_filePathFromObject gives texts that stay as they are while other objects are made",
       requireTextsOutliveOtherObjects},

      {"Quen_filePathFromObject gives a text that stays as it is when \"_path\" is set",
       requireTextOutlivesSetField},

      {"Quen_pathHasExplicitWindowsRoot finds none in null",
       [](const Adapter&) {
         require(!operations::pathHasExplicitWindowsRoot(nullptr), "it finds one");
       }},

      {"Quen_pathHasExplicitWindowsRoot finds drives, before slash and backslash",
       [](const Adapter&) {
         requireWindowsRoot(true, {"C:\\x", "C:/x", "c:\\x", "z:/", "C:\\"});
       }},

      {"Quen_pathHasExplicitWindowsRoot finds UNC roots",
       [](const Adapter&) {
         requireWindowsRoot(true, {"\\\\server\\share", "\\\\server\\share\\a"});
       }},

      {"Quen_pathHasExplicitWindowsRoot finds none in other texts",
       [](const Adapter&) {
         requireWindowsRoot(false, {"", "/", "/a", "a", "a/b", "..", "a\\b", "/C:/a", "1:/a"});
       }},

      {"Quen_pathHasExplicitWindowsRoot finds none in a drive without a separator, nor in //server",
       [](const Adapter&) {
         requireWindowsRoot(false, {"C:", "C:a", "//server", "//server/share"});
       },
       Severity::kAdvised},
  };
}

}  // namespace quen::conformance
