// What both forms of the module quen_io share: the table of entry points, the classes that Python
// code sees, texts, and the call of an entry point, around which the global interpreter lock (GIL)
// is given up.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <quen/io/entry_points.h>
#include <quen/io/runtime_parts.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace quen::python {

inline constexpr const char* kClasses = R"py(
class Path:
    "A path of the language. A FolderPath is a path too."
    def __init__(self, path="", parent_traversal=False):
        self._path, self._hasParentTraversal = path, parent_traversal
    def __fspath__(self): return self._path
    def __repr__(self): return f"{type(self).__name__}({self._path!r})"
class FolderPath(Path): pass
class FilePath(Path): pass
class IOException(OSError): pass
class NullException(ValueError): pass
class TypeError(TypeError): pass
class TOMLParseException(ValueError): pass

def _exception(quen_class, message):
    exception = globals().get(quen_class.rpartition(".")[2], RuntimeError)(message)
    exception.quen_class = quen_class
    return exception

def _put(place, short_name, function):  # "Path.get.exists": into the class get of the class Path
    *owners, member = short_name.split(".")
    for owner in owners:
        if not hasattr(place, owner): setattr(place, owner, type(owner, (), {}))
        place = getattr(place, owner)
    setattr(place, member, function)
)py";

struct Release {
  void operator()(PyObject* object) const { Py_DECREF(object); }
};
using Owned = std::unique_ptr<PyObject, Release>;

inline PyObject *gPath, *gFolderPath, *gException;

// Bytes that are not UTF-8 become lone surrogates, and the same bytes again in bytesOf (PEP 383).
inline Owned decoded(std::string_view bytes) {
  const auto size = static_cast<Py_ssize_t>(bytes.size());
  return Owned(PyUnicode_DecodeUTF8(bytes.data(), size, "surrogateescape"));
}

// Clears the exception of Python, if any; a MemoryError becomes std::bad_alloc.
inline void clearError() {
  const bool outOfMemory =
      PyErr_Occurred() != nullptr && PyErr_ExceptionMatches(PyExc_MemoryError) != 0;
  PyErr_Clear();
  if (outOfMemory) throw std::bad_alloc();
}

struct ReleaseBuffer {
  void operator()(Py_buffer* view) const { PyBuffer_Release(view); }
};
using LentBuffer = std::unique_ptr<Py_buffer, ReleaseBuffer>;

// The bytes of a str or bytes object, which stay in `kept`. None after a Python exception.
inline std::string_view bytesOf(PyObject* text, std::vector<Owned>& kept) {
  PyObject* bytes = PyBytes_Check(text)
                        ? Py_NewRef(text)
                        : PyUnicode_AsEncodedString(text, "utf-8", "surrogateescape");
  if (bytes == nullptr) return {};
  kept.push_back(Owned(bytes));
  return {PyBytes_AS_STRING(bytes), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes))};
}

// The same as a NUL-terminated text; null for None.
inline const char* textOf(PyObject* text, std::vector<Owned>& kept) {
  const std::string_view bytes = text == Py_None ? std::string_view() : bytesOf(text, kept);
  if (bytes.find('\0') != bytes.npos) PyErr_SetString(PyExc_ValueError, "embedded null byte");
  return bytes.data();
}

inline Owned newPath(std::string_view text, bool isFolder, bool parentTraversal) {
  return Owned(PyObject_CallFunction(isFolder ? gFolderPath : gPath, "NN", decoded(text).release(),
                                     PyBool_FromLong(parentTraversal)));
}

inline void raise(const parts::Exception& raised) {
  const Owned exception(PyObject_CallFunction(gException, "sN", raised.className.c_str(),
                                              decoded(raised.message).release()));
  if (exception) PyErr_SetObject(PyExceptionInstance_Class(exception.get()), exception.get());
}

// What the names of an entry point's parameters tell beyond their types.
struct Parameters {
  constexpr explicit Parameters(std::string_view list)
      : takesText(list.find("operand") != list.npos),
        fills(list.find("destination") != list.npos) {}

  bool takesText;  // a str is passed as a text, not as a String
  bool fills;      // the call fills a Byte[]
};

// `Call` converts each argument, and the result after the entry point has returned.
template <class Call, class Result, class... Arguments>
PyObject* callEntry(Result (*entry)(Arguments...), Parameters parameters, PyObject* const* given,
                    Py_ssize_t count) {
  if (count != static_cast<Py_ssize_t>(sizeof...(Arguments)))
    return PyErr_Format(PyExc_TypeError, "%zu arguments expected", sizeof...(Arguments));
  try {
    const parts::PendingExceptionScope pending;  // ends without what std::bad_alloc left pending
    Call call(parameters);
    const std::tuple<Arguments...> native{call.template take<Arguments>(*given++)...};
    if (PyErr_Occurred() != nullptr) return nullptr;
    const auto run = [&] {  // between Py_BEGIN_ALLOW_THREADS and Py_END_ALLOW_THREADS
      const std::unique_ptr<PyThreadState, void (*)(PyThreadState*)> withoutLock(
          PyEval_SaveThread(), PyEval_RestoreThread);
      return std::apply(entry, native);
    };
    if constexpr (std::is_void_v<Result>) {
      run();
      return call.finish() ? Py_NewRef(Py_None) : nullptr;
    } else {
      const Result result = run();
      return call.finish() ? call.give(result) : nullptr;
    }
  } catch (const std::exception& error) {  // std::bad_alloc
    PyErr_SetString(PyExc_MemoryError, error.what());
    return nullptr;
  }
}

// The short name, and what follows the name in the text for help(), "(path, offset)" first.
inline constexpr std::pair<const char*, const char*> kHelp[] = {
#define QUEN_IO_ENTRY_HELP(name, shortName, parameters, description) \
  {shortName, "(" parameters ")\n--\n\n" description},
#include <quen/io/entry_help.h>
#undef QUEN_IO_ENTRY_HELP
};

template <class Call>
constexpr _PyCFunctionFast kFunctions[] = {
#define QUEN_IO_ENTRY(name, result, ...)                                   \
  [](PyObject*, PyObject* const* given, Py_ssize_t count) {                \
    return callEntry<Call>(&name, Parameters(#__VA_ARGS__), given, count); \
  },
#include <quen/io/entry_list.h>
#undef QUEN_IO_ENTRY
};

// The module; null after an exception. The names live as long as the process.
template <class Call>
PyObject* makeModule(PyModuleDef* definition) {
  Owned module(PyModule_Create(definition));
  PyObject* names = PyModule_GetDict(module.get());
  PyDict_SetItemString(names, "__builtins__", PyEval_GetBuiltins());
  if (!Owned(PyRun_String(kClasses, Py_file_input, names, names))) return nullptr;
  gPath = PyDict_GetItemString(names, "Path");
  gFolderPath = PyDict_GetItemString(names, "FolderPath");
  gException = PyDict_GetItemString(names, "_exception");

  static PyMethodDef methods[std::size(kHelp)];
  static std::string help[std::size(kHelp)];
  for (std::size_t i = 0; i < std::size(kHelp); ++i) {
    const auto& [shortName, text] = kHelp[i];
    const char* name = shortName + std::string_view(shortName).find_last_of('.') + 1;
    help[i] = std::string(name) + text;
    methods[i] = {name, reinterpret_cast<PyCFunction>(reinterpret_cast<void*>(kFunctions<Call>[i])),
                  METH_FASTCALL, help[i].c_str()};
    Owned function(PyCFunction_New(&methods[i], nullptr));
    if (std::string_view(text).starts_with("(self"))
      function.reset(PyInstanceMethod_New(function.get()));  // bound to its receiver
    if (!Owned(PyObject_CallMethod(module.get(), "_put", "OsO", module.get(), shortName,
                                   function.get())))
      return nullptr;
  }
  return module.release();
}

}  // namespace quen::python
