// The module quen_io for CPython with operations of its own over Python's objects: a String is a
// str, a Byte[] a bytearray, an ArrayList a list, and path objects are those of the classes in
// binding.h. The module's object pointers are handles.
//
// Rules of the global interpreter lock (GIL): it is given up around every entry point; an operation
// that touches objects takes it; Quen_raise and Quen_hasPendingError, which the module calls under
// locks of its own, do neither (they are those of quen::runtime_parts).

#include <quen/io/operations.h>

#include "binding.h"

namespace fs = std::filesystem;

namespace {

using namespace quen::python;

// For tests (QUEN_IO_COLLECT=1): a collection inside every operation that touches objects.
const bool gCollect = std::getenv("QUEN_IO_COLLECT") != nullptr;

// Takes the GIL for an operation, on any thread.
class Gil {
 public:
  Gil() : state_(PyGILState_Ensure()) {
    if (gCollect) PyGC_Collect();
  }
  ~Gil() { PyGILState_Release(state_); }
  Gil(const Gil&) = delete;
  Gil& operator=(const Gil&) = delete;

 private:
  PyGILState_STATE state_;
};

// Handles: each is an address in a range in which nothing is ever stored, so that objects are told
// from texts by the address alone. The range is never touched and takes no memory.
constexpr std::size_t kMostHandles = std::size_t{1} << 26;
char gRange[kMostHandles];

bool isHandle(void* pointer) {
  return std::less_equal<>()(gRange, pointer) && std::less<>()(pointer, gRange + kMostHandles);
}

// The objects behind the handles. Guarded by the GIL.
class HandleTable {
 public:
  // Without an object, Python is out of memory.
  void* add(Owned object) {
    if (!object) {
      PyErr_Clear();
      throw std::bad_alloc();
    }
    if (free_.empty()) {
      if (objects_.size() == kMostHandles) throw std::bad_alloc();
      // There is room for every handle, so that remove() needs no memory.
      if (free_.capacity() == objects_.size()) free_.reserve(2 * objects_.size() + 1);
      objects_.emplace_back();
      free_.push_back(gRange + objects_.size() - 1);
    }
    char* handle = free_.back();
    free_.pop_back();
    objects_[indexOf(handle)] = std::move(object);
    return handle;
  }

  // Borrowed. Null for null and for what is no handle in use.
  PyObject* find(void* handle) const {
    if (!isHandle(handle)) return nullptr;
    const std::size_t index = indexOf(handle);
    return index < objects_.size() ? objects_[index].get() : nullptr;
  }

  Owned remove(void* handle) {
    free_.push_back(static_cast<char*>(handle));
    return std::move(objects_[indexOf(handle)]);
  }

 private:
  static std::size_t indexOf(void* handle) {
    return static_cast<std::size_t>(static_cast<char*>(handle) - gRange);
  }

  std::vector<Owned> objects_;
  std::vector<char*> free_;
};

HandleTable& handles() {
  static auto& table = *new HandleTable;
  return table;
}

// What one call of an entry point keeps alive: its handles, and the bytes of texts that the module
// borrowed. Finalizers that run inside an operation may call entry points, so calls are nested.
class Frame {
 public:
  Frame() : outer_(std::exchange(tInnermost, this)) {}
  ~Frame() {
    tInnermost = outer_;
    // Each is out of the table before its object is released, which may run a finalizer that calls.
    for (void* handle : handles_) {
      if (handle != nullptr) handles().remove(handle);
    }
  }
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;

  void* add(Owned object) {
    handles_.push_back(nullptr);  // first, so that without memory no handle is lost
    return handles_.back() = handles().add(std::move(object));
  }

  std::vector<Owned>& kept() { return kept_; }

  // That of the innermost call of this thread.
  static Frame& current() { return *tInnermost; }

 private:
  static inline thread_local Frame* tInnermost = nullptr;

  Frame* outer_;
  std::vector<void*> handles_;
  std::vector<Owned> kept_;
};

void* newHandle(Owned object) { return Frame::current().add(std::move(object)); }

class Call {
 public:
  explicit Call(Parameters parameters) : parameters_(parameters) {}

  template <class Argument>
  Argument take(PyObject* value) {
    if (PyErr_Occurred() != nullptr) return {};
    if constexpr (std::is_same_v<Argument, const char*>)
      return textOf(value, frame_.kept());
    else if constexpr (std::is_same_v<Argument, void*>)
      return takeObject(value);
    else
      return static_cast<Argument>(PyLong_AsLongLong(value));
  }

  // False after an exception.
  bool finish() {
    if (const auto exception = quen::parts::takeException()) raise(*exception);
    return PyErr_Occurred() == nullptr;
  }

  PyObject* give(bool result) { return PyBool_FromLong(result); }
  PyObject* give(std::int64_t result) { return PyLong_FromLongLong(result); }
  PyObject* give(void* result) {
    return Py_NewRef(result == nullptr ? Py_None : handles().find(result));
  }

 private:
  void* takeObject(PyObject* value) {
    if (value == Py_None) return nullptr;
    if (parameters_.takesText && PyUnicode_Check(value))
      return const_cast<char*>(textOf(value, frame_.kept()));
    return frame_.add(Owned(Py_NewRef(value)));
  }

  Parameters parameters_;
  Frame frame_;
};

// An attribute; null, and no exception, if the object does not have it.
Owned attribute(void* object, const char* name) {
  PyObject* known = handles().find(object);
  Owned value(known == nullptr ? nullptr : PyObject_GetAttrString(known, name));
  if (!value) clearError();
  return value;
}

// Calls `use` with the contents of an object with a buffer: bytes, bytearray, memoryview, mmap.
template <class Use>
bool withBuffer(void* object, int flags, std::string& error, Use use) {
  PyObject* known = handles().find(object);
  Py_buffer view;
  if (known == nullptr || PyObject_GetBuffer(known, &view, flags) != 0) {
    clearError();
    error = "Expected Byte[] but got ";
    error += known == nullptr ? "null" : Py_TYPE(known)->tp_name;
    return false;
  }
  const LentBuffer lent(&view);
  return use(static_cast<std::uint8_t*>(view.buf), static_cast<std::uint64_t>(view.len));
}

}  // namespace

// The operations that touch objects. quen/io/operations.h documents each.

void* Quen_allocString(const std::string& bytes) {
  const Gil gil;
  return newHandle(decoded(bytes));
}

void* Quen_allocTypedPathObjectFromPath(const fs::path& path, bool nonFolder,
                                        bool explicitWindowsRoot, bool parentTraversal) {
  const std::string text = Quen_visiblePathString(path, explicitWindowsRoot);
  const Gil gil;
  return newHandle(newPath(text, !nonFolder, parentTraversal));
}

const char* Quen_filePathFromObject(void* object) {
  if (object == nullptr) return nullptr;
  const Gil gil;
  const Owned text = attribute(object, "_path");
  if (!text || text.get() == Py_None) return nullptr;
  const char* bytes = bytesOf(text.get(), Frame::current().kept()).data();
  clearError();
  return bytes;
}

bool Quen_readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string& error) {
  const Gil gil;
  return withBuffer(object, PyBUF_SIMPLE, error, [&](std::uint8_t* data, std::uint64_t size) {
    bytes.assign(data, data + size);
    return true;
  });
}

bool Quen_writeByteArrayData(void* object, const std::uint8_t* bytes, std::uint64_t count,
                             std::string& error) {
  const Gil gil;
  return withBuffer(object, PyBUF_WRITABLE, error, [&](std::uint8_t* data, std::uint64_t size) {
    if (count <= size) std::copy_n(bytes, count, data);
    if (count > size) error = "Byte[] is too short";
    return count <= size;
  });
}

bool hasObjectMagic(void* pointer) { return isHandle(pointer); }

void* Quen_allocObject(const char*) {  // "ArrayList"
  const Gil gil;
  return newHandle(Owned(PyList_New(0)));
}

std::int64_t Quen_getField_i64(void* object, const char* field) {
  const Gil gil;
  const Owned value = attribute(object, field);
  const long long number = value ? PyLong_AsLongLong(value.get()) : 0;
  clearError();
  return number;
}

void Quen_setField_ptr(void* object, const char* field, void* value) {
  const Gil gil;
  PyObject* stored = value == nullptr ? Py_None : handles().find(value);
  if (PyObject_SetAttrString(handles().find(object), field, stored) != 0) clearError();
}

int Quen_isInstanceOf(void* object, const char* className) {
  if (object == nullptr) return 0;
  std::string_view name = className;
  if (name.starts_with("quen.io.")) name.remove_prefix(8);
  const Gil gil;
  PyObject* classes = Py_TYPE(handles().find(object))->tp_mro;
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(classes); ++i) {
    if (name == reinterpret_cast<PyTypeObject*>(PyTuple_GET_ITEM(classes, i))->tp_name) return 1;
  }
  return 0;
}

void quen_collections_ArrayList_add(void* list, void* element) {
  const Gil gil;
  PyObject* value = element == nullptr ? Py_None : handles().find(element);
  if (PyList_Append(handles().find(list), value) != 0) newHandle(nullptr);
}

namespace {

PyModuleDef gDefinition = {.m_base = PyModuleDef_HEAD_INIT, .m_name = "quen_io", .m_size = -1};

}  // namespace

PyMODINIT_FUNC PyInit_quen_io() { return makeModule<Call>(&gDefinition); }
