// Byte[]: reading, filling, and refusing other objects.

#include <algorithm>

#include "conformance/operations.h"
#include "conformance/requirement.h"

namespace quen::conformance {

namespace {

using Bytes = std::vector<std::uint8_t>;

// All byte values, including NUL.
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
  require(operations::readByteArrayData(array, bytes, error), "refused: " + shown(error));
  return bytes;
}

void write(void* array, const Bytes& bytes) {
  std::string error;
  require(operations::writeByteArrayData(array, bytes.data(), bytes.size(), error),
          "refused: " + shown(error));
}

void requireReadRefused(void* object) {
  Bytes bytes;
  std::string error;
  require(!operations::readByteArrayData(object, bytes, error), "it is read");
}

void requireWriteRefused(void* object) {
  const Bytes bytes{'a', 'b'};
  std::string error;
  require(!operations::writeByteArrayData(object, bytes.data(), bytes.size(), error),
          "it is filled");
}

// A short read: the module fills part of the caller's array.
void requireTheFirstBytesFilled(const Adapter& adapter) {
  void* array = newByteArray(adapter, Bytes(10, 'x'));
  write(array, {'a', 0, 'b'});
  Bytes contents = adapter.byteArrayContents(array);
  contents.resize(std::min<std::size_t>(contents.size(), 3));
  requireBytes("the beginning of the Byte[]", contents, {'a', 0, 'b'});
}

// A short read at the end of file must not change the length of the caller's array.
void requireTheLengthKept(const Adapter& adapter) {
  void* array = newByteArray(adapter, Bytes(10, 'x'));
  write(array, {'a', 0, 'b'});
  requireEqual("the length of the Byte[]", std::to_string(adapter.byteArrayContents(array).size()),
               "10");
}

// The rest of the caller's array may hold bytes of an earlier read.
void requireTheRestKept(const Adapter& adapter) {
  void* array = newByteArray(adapter, Bytes(10, 'x'));
  write(array, {'a', 0, 'b'});
  Bytes contents = adapter.byteArrayContents(array);
  contents.erase(contents.begin(),
                 contents.begin() + std::min<std::ptrdiff_t>(std::ssize(contents), 3));
  requireBytes("the rest of the Byte[]", contents, Bytes(7, 'x'));
}

// Callers use one array for many reads.
void requireFilledAgain(const Adapter& adapter) {
  void* array = newByteArray(adapter, Bytes(10, 'x'));
  for (const std::size_t count : {10U, 3U, 1U, 10U}) write(array, Bytes(count, 'a'));
  requireBytes("the Byte[]", adapter.byteArrayContents(array), Bytes(10, 'a'));
}

// The runtime may grow the array or refuse.
void requireTooManyBytesAllOrNone(const Adapter& adapter) {
  const Bytes before{'x', 'y'};
  const Bytes tooMany = patternOf(100'000);
  void* array = newByteArray(adapter, before);
  std::string error;
  const bool filled = operations::writeByteArrayData(array, tooMany.data(), tooMany.size(), error);
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

      {"Quen_writeByteArrayData keeps the length when there are fewer bytes", requireTheLengthKept},

      {"Quen_writeByteArrayData leaves the bytes behind those that it fills", requireTheRestKept},

      {"Quen_writeByteArrayData fills the whole length again after fewer bytes",
       requireFilledAgain},

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
