// A host that writes its own object operations, replaces one of the others and takes the rest from
// quen::runtime_parts.

#include <quen/io/entry_points.h>
#include <quen/io/runtime_parts.h>

#include <deque>
#include <iostream>

namespace fs = std::filesystem;

namespace {

// Every object is a String or a list of Strings; paths are texts alone.
struct Object {
  std::string bytes;
  std::deque<Object*> elements;
};

std::deque<Object> gObjects;

Object* newObject(const std::string& bytes) { return &gObjects.emplace_back(Object{bytes, {}}); }

}  // namespace

void* Quen_allocString(const std::string& bytes) { return newObject(bytes); }
void* Quen_allocObject(const char*) { return newObject(""); }

void quen_collections_ArrayList_add(void* list, void* element) {
  static_cast<Object*>(list)->elements.push_back(static_cast<Object*>(element));
}

void* Quen_allocTypedPathObjectFromPath(const fs::path& path, bool, bool, bool) {
  return newObject(path.native());
}

const char* Quen_filePathFromObject(void*) { return nullptr; }
bool Quen_readByteArrayData(void*, std::vector<std::uint8_t>&, std::string&) { return false; }
bool Quen_writeByteArrayData(void*, const std::uint8_t*, std::uint64_t, std::string&) {
  return false;
}
bool hasObjectMagic(void*) { return false; }
std::int64_t Quen_getField_i64(void*, const char*) { return 0; }
void Quen_setField_ptr(void*, const char*, void*) {}
int Quen_isInstanceOf(void*, const char*) { return 0; }

// Replaced: this host knows of one entry only.
bool Quen_pathExists(const fs::path& path) { return path == "/imagined"; }

int main() {
  std::cout << static_cast<Object*>(quen_io_Path__normalizePath("a/../b/"))->bytes << ' '
            << quen_io_FileInputStream__existsPath("/imagined")
            << quen_io_FileInputStream__existsPath("/") << ' '
            << static_cast<Object*>(quen_io_Path__pathKindPath("/"))->bytes << '\n';

  quen_io_FileReader__readAllTextPath("/nowhere");
  {
    const quen::parts::PendingExceptionScope finalizer;
    quen_io_FileReader__readAllTextPath("");
  }
  const auto exception = quen::parts::takeException();
  std::cout << (exception ? exception->className + ": " + exception->message : "none") << '\n';
}
