// The module quen_io for CPython over the copying layer: arguments are copied into the small
// runtime, which supplies all operations, and results are copied out. No operation touches an
// object of Python, so there is no lock order and no handle to get right.

#include <quen/small/host.h>

#include "binding.h"

namespace {

using namespace quen::python;
namespace small = quen::small;

// For tests: a collection before and after each conversion.
const bool gCollect = std::getenv("QUEN_IO_COLLECT") != nullptr;

class Call {
 public:
  explicit Call(Parameters parameters) : parameters_(parameters) {}

  template <class Argument>
  Argument take(PyObject* value) {
    if (gCollect) PyGC_Collect();
    if (PyErr_Occurred() != nullptr) return {};
    if constexpr (std::is_same_v<Argument, const char*>)
      return textOf(value, kept_);
    else if constexpr (std::is_same_v<Argument, void*>)
      return takeObject(value);
    else
      return static_cast<Argument>(PyLong_AsLongLong(value));
  }

  // Raises in Python what the call raised; copies the path of a receiver that was renamed.
  bool finish() {
    if (gCollect) PyGC_Collect();
    if (const auto raised = small::takeException()) raise(*raised);
    for (const auto& [value, native, path] : passed_) {
      const char* now = Quen_filePathFromObject(native);
      if (now == path) continue;
      const Owned text = decoded(now);
      if (text) PyObject_SetAttrString(value, "_path", text.get());
    }
    return PyErr_Occurred() == nullptr;
  }

  PyObject* give(bool result) { return PyBool_FromLong(result); }

  PyObject* give(std::int64_t result) {
    Py_buffer view;
    if (result > 0 && parameters_.fills) {
      if (PyObject_GetBuffer(passed_[0].value, &view, PyBUF_WRITABLE) != 0) return nullptr;
      // Another thread may have made the array shorter.
      const auto count = static_cast<std::size_t>(std::min<std::int64_t>(result, view.len));
      small::copyByteArray(passed_[0].native, {static_cast<std::uint8_t*>(view.buf), count});
      PyBuffer_Release(&view);
    }
    return PyLong_FromLongLong(result);
  }

  PyObject* give(void* result) {
    if (result == nullptr) return Py_NewRef(Py_None);
    for (const Passed& each : passed_) {
      if (each.native == result) return Py_NewRef(each.value);
    }
    if (const char* path = Quen_filePathFromObject(result))
      return newPath(path, small::isFolderPath(result), small::hasParentTraversal(result))
          .release();
    const std::string_view text = small::stringView(result);
    return text.data() != nullptr ? decoded(text).release() : giveList(small::listElements(result));
  }

 private:
  struct Passed {
    PyObject* value;
    void* native;
    const char* path;  // before the call
  };

  static PyObject* giveList(const std::vector<void*>& elements) {
    Owned list(PyList_New(static_cast<Py_ssize_t>(elements.size())));
    for (std::size_t i = 0; i < elements.size() && list; ++i) {
      PyObject* text = decoded(small::stringView(elements[i])).release();
      if (text == nullptr) return nullptr;
      PyList_SET_ITEM(list.get(), static_cast<Py_ssize_t>(i), text);
    }
    return list.release();
  }

  void* takeObject(PyObject* value) {
    if (value == Py_None) return nullptr;
    if (parameters_.takesText && PyUnicode_Check(value))
      return const_cast<char*>(textOf(value, kept_));
    void* native = copyIn(value);
    passed_.push_back({value, native, Quen_filePathFromObject(native)});
    return native;
  }

  void* copyIn(PyObject* value) {
    if (PyObject_IsInstance(value, gPath) == 1) return copyPathIn(value);
    if (PyUnicode_Check(value)) return small::newString(bytesOf(value, kept_));
    Py_buffer view;
    if (PyObject_GetBuffer(value, &view, parameters_.fills ? PyBUF_WRITABLE : PyBUF_SIMPLE) != 0) {
      clearError();
      return small::newObject("Object");
    }
    const LentBuffer lent(&view);
    const auto* bytes = static_cast<const std::uint8_t*>(view.buf);
    return small::newByteArray(std::vector<std::uint8_t>(bytes, bytes + view.len));
  }

  void* copyPathIn(PyObject* value) {
    const Owned text(PyObject_GetAttrString(value, "_path"));
    const Owned traversal(PyObject_GetAttrString(value, "_hasParentTraversal"));
    if (!text || !traversal) return nullptr;
    if (text.get() == Py_None) return small::newObject("quen.io.Path");
    const auto make =
        PyObject_IsInstance(value, gFolderPath) == 1 ? small::newFolderPath : small::newPath;
    return make(bytesOf(text.get(), kept_), PyObject_IsTrue(traversal.get()) == 1);
  }

  Parameters parameters_;
  small::Scope scope_;
  std::vector<Owned> kept_;
  std::vector<Passed> passed_;
};

PyModuleDef gDefinition = {.m_base = PyModuleDef_HEAD_INIT, .m_name = "quen_io", .m_size = -1};

}  // namespace

PyMODINIT_FUNC PyInit_quen_io() { return makeModule<Call>(&gDefinition); }
