// Byte[]: reading, filling, and refusing what is none.

#include <algorithm>

#include "conformance/requirement.h"
#include "quen/io/operations.h"

namespace quen::conformance {

namespace {

using Bytes = std::vector<std::uint8_t>;

// Every value, NUL among them.
Bytes patternOf(std::size_t length) {
  Bytes bytes(length);
  for (std::size_t i = 0; i < length; ++i) bytes[i] = static_cast<std::uint8_t>(i);
  return bytes;
}

std::string_view viewOf(const Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

void requireBytes(const std::string& what, const Bytes& actual, const Bytes& expected) {
  requireEqual(what, viewOf(actual), viewOf(expected));
}

void* newByteArray(const Adapter& adapter, const Bytes& bytes) {
  return made(adapter.newByteArray(bytes), "the Byte[]");
}

Bytes read(void* array) {
  Bytes bytes{'o', 'l', 'd'};
  std::string error;
  require(Quen_readByteArrayData(array, bytes, error), "refused: " + shown(error));
  return bytes;
}

void write(void* array, const Bytes& bytes) {
  std::string error;
  require(Quen_writeByteArrayData(array, bytes.data(), bytes.size(), error),
          "refused: " + shown(error));
}

void requireReadRefused(void* object) {
  Bytes bytes;
  std::string error;
  require(!Quen_readByteArrayData(object, bytes, error), "it is read");
}

void requireWriteRefused(void* object) {
  const Bytes bytes{'a', 'b'};
  std::string error;
  require(!Quen_writeByteArrayData(object, bytes.data(), bytes.size(), error), "it is filled");
}

// The module fills the caller's array with what a file had left.
void requireTheFirstBytesFilled(const Adapter& adapter) {
  void* array = newByteArray(adapter, Bytes(10, 'x'));
  write(array, {'a', 0, 'b'});
  Bytes contents = adapter.byteArrayContents(array);
  contents.resize(std::min<std::size_t>(contents.size(), 3));
  requireBytes("the beginning of the Byte[]", contents, {'a', 0, 'b'});
}

// Growing and refusing are both fine.
void requireTooManyBytesAllOrNone(const Adapter& adapter) {
  const Bytes before{'x', 'y'};
  const Bytes tooMany = patternOf(100'000);
  void* array = newByteArray(adapter, before);
  std::string error;
  const bool filled = Quen_writeByteArrayData(array, tooMany.data(), tooMany.size(), error);
  requireBytes("the Byte[]", adapter.byteArrayContents(array), filled ? tooMany : before);
}

void requireStringUnchanged(const Adapter& adapter) {
  void* string = made(adapter.newString("text"), "the String");
  requireWriteRefused(string);
  requireEqual("the String", adapter.stringBytes(string), "text");
}

}  // namespace

Requirements byteArrayRequirements() {
  return {
      {"Quen_readByteArrayData gives every byte, NULs among them",
       [](const Adapter& adapter) {
         requireBytes("what is read", read(newByteArray(adapter, patternOf(256))), patternOf(256));
       }},

      {"Quen_readByteArrayData gives 1 MiB",
       [](const Adapter& adapter) {
         const Bytes bytes = patternOf(std::size_t{1} << 20);
         requireBytes("what is read", read(newByteArray(adapter, bytes)), bytes);
       }},

      {"Quen_readByteArrayData gives no bytes for an empty Byte[]",
       [](const Adapter& adapter) {
         requireBytes("what is read", read(newByteArray(adapter, {})), {});
       }},

      {"Quen_readByteArrayData leaves the Byte[] as it is",
       [](const Adapter& adapter) {
         void* array = newByteArray(adapter, {'a', 'b'});
         read(array);
         requireBytes("what is read again", read(array), {'a', 'b'});
       }},

      {"Quen_readByteArrayData refuses null", [](const Adapter&) { requireReadRefused(nullptr); }},

      {"Quen_readByteArrayData refuses a String",
       [](const Adapter& adapter) {
         requireReadRefused(made(adapter.newString("text"), "the String"));
       }},

      {"Quen_readByteArrayData refuses other objects",
       [](const Adapter& adapter) {
         requireReadRefused(made(adapter.newPath("a"), "the path object"));
         requireReadRefused(made(adapter.newOtherObject()));
       }},

      {"Quen_writeByteArrayData fills a Byte[] with every byte, NULs among them",
       [](const Adapter& adapter) {
         void* array = newByteArray(adapter, Bytes(256));
         write(array, patternOf(256));
         requireBytes("the Byte[]", adapter.byteArrayContents(array), patternOf(256));
       }},

      {"Quen_writeByteArrayData fills 1 MiB",
       [](const Adapter& adapter) {
         const Bytes bytes = patternOf(std::size_t{1} << 20);
         void* array = newByteArray(adapter, Bytes(bytes.size()));
         write(array, bytes);
         requireBytes("the Byte[]", adapter.byteArrayContents(array), bytes);
       }},

      {"Quen_writeByteArrayData fills the first bytes when there are fewer than the length",
       requireTheFirstBytesFilled},

      {"Quen_writeByteArrayData takes more bytes than the length all or not at all",
       requireTooManyBytesAllOrNone},

      {"Quen_writeByteArrayData copies the bytes",
       [](const Adapter& adapter) {
         void* array = newByteArray(adapter, Bytes(100));
         Bytes bytes(100, 'a');
         write(array, bytes);
         bytes.assign(100, 'b');
         requireBytes("the Byte[]", adapter.byteArrayContents(array), Bytes(100, 'a'));
       }},

      {"Quen_writeByteArrayData leaves what Quen_readByteArrayData then gives",
       [](const Adapter& adapter) {
         void* array = newByteArray(adapter, Bytes(3));
         write(array, {0, 255, 'a'});
         requireBytes("what is read", read(array), {0, 255, 'a'});
       }},

      {"Quen_writeByteArrayData refuses null",
       [](const Adapter&) { requireWriteRefused(nullptr); }},

      {"Quen_writeByteArrayData refuses a String and leaves it as it is", requireStringUnchanged},

      {"Quen_writeByteArrayData refuses other objects",
       [](const Adapter& adapter) {
         requireWriteRefused(made(adapter.newPath("a"), "the path object"));
         requireWriteRefused(made(adapter.newOtherObject()));
       }},
  };
}

}  // namespace quen::conformance
