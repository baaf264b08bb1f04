// The classes of objects, their fields, and the path objects that the module creates.

#include <filesystem>

#include "conformance/operations.h"
#include "conformance/requirement.h"

namespace fs = std::filesystem;

namespace quen::conformance {

namespace {

constexpr const char* kTraversal = "_hasParentTraversal";

// The module asks for both names; one of them is enough.
bool answersToFolderPath(void* object) {
  return operations::isInstanceOf(object, "FolderPath") != 0 ||
         operations::isInstanceOf(object, "quen.io.FolderPath") != 0;
}

void* derivedPath(const fs::path& path, bool nonFolder, bool explicitWindowsRoot,
                  bool parentTraversal) {
  return made(operations::allocTypedPathObjectFromPath(path, nonFolder, explicitWindowsRoot,
                                                       parentTraversal),
              "the path object");
}

void requireNoFolderPath(void* object, const std::string& what) {
  require(!answersToFolderPath(made(object, what)), what + " is a FolderPath");
}

void requireTraversal(void* object, bool expected) {
  const std::int64_t value = operations::getFieldI64(made(object, "the path object"), kTraversal);
  require((value != 0) == expected, "the field reads " + std::to_string(value));
}

std::string textOf(void* path) {
  const char* text = operations::filePathFromObject(path);
  return text == nullptr ? "" : text;
}

void requireVisibleText(bool explicitWindowsRoot) {
  for (const char* text :
       {"a", "a/../b//", "/", "/a", "\xFF\xC3(", "C:/a", "C:\\a", "\\\\server\\a"}) {
    const fs::path path(text);
    requireEqual("the text of the path object",
                 textOf(derivedPath(path, true, explicitWindowsRoot, false)),
                 operations::visiblePathString(path, explicitWindowsRoot));
  }
}

// Path.rename sets "_path" this way; nothing else in the object may change.
void requireOnlyTheTextChanges(const Adapter& adapter) {
  void* path = derivedPath("old", false, false, true);
  operations::setFieldPtr(path, "_path", made(adapter.newString("new"), "the String"));

  requireTraversal(path, true);
  require(answersToFolderPath(path), "it is a FolderPath no longer");
}

}  // namespace

Requirements objectRequirements() {
  return {
      {"Quen_allocTypedPathObjectFromPath makes a FolderPath without the flag nonFolder",
       [](const Adapter& adapter) {
         void* path = derivedPath("a", false, false, false);
         require(answersToFolderPath(path), "Quen_isInstanceOf knows it by neither name");
         require(adapter.isFolderPath(path), "the adapter sees no FolderPath");
       }},

      {"Quen_allocTypedPathObjectFromPath makes no FolderPath with the flag nonFolder",
       [](const Adapter& adapter) {
         void* path = derivedPath("a", true, false, false);
         requireNoFolderPath(path, "the path object");
         require(!adapter.isFolderPath(path), "the adapter sees a FolderPath");
       }},

      {"Quen_allocTypedPathObjectFromPath sets \"_hasParentTraversal\" when it is told to",
       [](const Adapter&) {
         requireTraversal(derivedPath("a", true, false, true), true);
         requireTraversal(derivedPath("a", false, false, true), true);
       }},

      {"Quen_allocTypedPathObjectFromPath leaves \"_hasParentTraversal\" 0 otherwise",
       [](const Adapter&) {
         requireTraversal(derivedPath("a", true, false, false), false);
         requireTraversal(derivedPath("a", false, true, false), false);
       }},

      {"Quen_allocTypedPathObjectFromPath gives the object the visible text",
       [](const Adapter&) { requireVisibleText(false); }},

      {"Quen_allocTypedPathObjectFromPath does so with the root flag too",
       [](const Adapter&) { requireVisibleText(true); }},

      {"Quen_allocTypedPathObjectFromPath makes an object of the empty path too",
       [](const Adapter&) {
         requireEqual("the text of a path", textOf(derivedPath("", true, false, false)), "");
         requireEqual("the text of a folder", textOf(derivedPath("", false, false, false)), "");
       }},

      {"Quen_isInstanceOf knows a FolderPath by its short or qualified name",
       [](const Adapter& adapter) {
         void* folder = made(adapter.newFolderPath("a"), "the FolderPath");
         require(answersToFolderPath(folder), "it answers to neither");
       }},

      {"Quen_isInstanceOf knows an object of a class below FolderPath as one",
       [](const Adapter& adapter) {
         void* folder = adapter.newFolderSubclass("a");
         if (folder == nullptr) throw Skipped("there is no class below FolderPath");
         require(answersToFolderPath(folder), "it answers to neither name");
       }},

      {"Quen_isInstanceOf takes nothing else for a FolderPath",
       [](const Adapter& adapter) {
         requireNoFolderPath(adapter.newPath("a"), "a path object");
         requireNoFolderPath(adapter.newString("FolderPath"), "a String");
         requireNoFolderPath(adapter.newByteArray({}), "a Byte[]");
         requireNoFolderPath(adapter.newOtherObject(), "the other object");
       }},

      {"Quen_isInstanceOf gives 0 for null",
       [](const Adapter&) {
         require(!answersToFolderPath(nullptr), "null is a FolderPath");
         require(operations::isInstanceOf(nullptr, "String") == 0, "null is a String");
       }},

      {"Quen_isInstanceOf gives 0 for a class that nobody knows",
       [](const Adapter& adapter) {
         void* folder = made(adapter.newFolderPath("a"), "the FolderPath");
         require(operations::isInstanceOf(folder, "quen.io.NoSuchClass") == 0, "another number");
       }},

      {"Quen_getField_i64 reads 0 from \"_hasParentTraversal\" of path objects of plain texts",
       [](const Adapter& adapter) {
         requireTraversal(adapter.newPath("a"), false);
         requireTraversal(adapter.newFolderPath("/a"), false);
         requireTraversal(adapter.newPathWithoutText(), false);
       }},

      {"Quen_getField_i64 gives 0 for objects that lack the field",
       [](const Adapter& adapter) {
         requireTraversal(adapter.newString("a"), false);
         requireTraversal(adapter.newByteArray({1, 1, 1, 1, 1, 1, 1, 1}), false);
         requireTraversal(adapter.newOtherObject(), false);
       }},

      {"Quen_setField_ptr of \"_path\" changes the text of a path object",
       [](const Adapter& adapter) {
         void* path = made(adapter.newPath("old"), "the path object");
         operations::setFieldPtr(path, "_path", made(adapter.newString("/new/text"), "the String"));
         requireEqual("the text", textOf(path), "/new/text");
       }},

      {"Quen_setField_ptr of \"_path\" changes it in objects that the module made, and again",
       [](const Adapter&) {
         void* path = derivedPath("old", true, false, false);
         for (const char* text : {"first", "second"}) {
           operations::setFieldPtr(path, "_path",
                                   made(operations::allocPathString(text, false), "the String"));
           requireEqual("the text", textOf(path), text);
         }
       }},

      {"Quen_setField_ptr of \"_path\" gives a path to an object without one",
       [](const Adapter& adapter) {
         void* path = made(adapter.newPathWithoutText(), "the path object");
         operations::setFieldPtr(path, "_path", made(adapter.newString("a"), "the String"));
         requireEqual("the text", textOf(path), "a");
       }},

      {"Quen_setField_ptr of \"_path\" changes nothing else", requireOnlyTheTextChanges},
  };
}

}  // namespace quen::conformance
