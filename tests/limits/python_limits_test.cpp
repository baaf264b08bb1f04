// The module for CPython with little memory, on threads of one interpreter.

#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "tests/limits/host_limits.h"

using namespace quen::tests;

namespace {

// prepare makes what the call refers to, and the call as a function; describe gives three texts:
// the result, what was raised, and what was stored in arguments.
constexpr const char* kScript = R"py(
import os, sys
sys.path.insert(0, folder_of_module)
import quen_io

TEXT = "t" * 20000

def file(name, contents=""):
    with open(name, "w") as made:
        made.write(contents)
    return name

def prepare(scratch, call):
    ground = dict(
        vars(quen_io), file=file(f"{scratch}/file", TEXT), folder=f"{scratch}/folder",
        missing=f"{scratch}/missing", text=TEXT, bytes=bytearray(b"b" * 20000),
        destination=bytearray(10000), handle=quen_io.FileWriter._openPath(f"{scratch}/written", 0))
    os.mkdir(ground["folder"])
    file(ground["folder"] + "/a")
    file(ground["folder"] + "/b")
    ground["filePath"] = quen_io.Path(ground["file"])
    ground["folderPath"] = quen_io.FolderPath(ground["folder"])
    ground["missingPath"] = quen_io.Path(ground["missing"])
    return eval("lambda: " + call, ground)

def words(value):
    if isinstance(value, str):
        return "String: " + value
    if isinstance(value, quen_io.Path):
        return f"Path: {value._path}" + (" (parent traversal)" if value._hasParentTraversal else "")
    return str(sorted(value) if isinstance(value, list) else value)

def describe(call, value, raised):
    ground = call.__globals__
    assert quen_io.Path._pathName("a/b") == "b"  # nothing is pending any more
    ground["bytes"].append(0)  # fails if the array is still lent
    ground["destination"].append(0)
    arguments = f"{ground['filePath']._path} {ground['destination'].count(0)}"
    if raised is None:
        return words(value), "", arguments
    return "", f"{type(raised).__name__}: {raised}", arguments

def release(call):
    try:
        quen_io.FileWriter._closeHandle(call.__globals__["handle"])
    except OSError:
        pass
    call.__globals__.clear()
)py";

struct Release {
  void operator()(PyObject* object) const { Py_DECREF(object); }
};
using Owned = std::unique_ptr<PyObject, Release>;

// The names of the script. The interpreter is started once, by main, which then gives up the lock.
PyObject* gNames = nullptr;

Owned checked(PyObject* object) {
  if (object == nullptr) {
    PyErr_Print();
    throw std::runtime_error("an exception of Python");
  }
  return Owned(object);
}

// Holds the global lock. The state of the thread exists before, so this needs no memory.
class Lock {
 public:
  explicit Lock(PyThreadState*& state) : state_(state) { PyEval_RestoreThread(state); }
  ~Lock() { state_ = PyEval_SaveThread(); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  PyThreadState*& state_;
};

class PythonCaller : public Caller {
 public:
  explicit PythonCaller(std::string call) : call_(std::move(call)) {}

  void prepare() override {
    ensured_ = PyGILState_Ensure();
    state_ = PyEval_SaveThread();
    const Lock lock(state_);
    function_ = checked(
        PyObject_CallFunction(named("prepare"), "ss", scratch.path().c_str(), call_.c_str()));
    for (const char* name : {"file", "folder"}) {
      std::filesystem::last_write_time(scratch / name, std::filesystem::file_time_type{});
    }
  }

  void call() override {
    const Lock lock(state_);
    value_.reset(PyObject_CallNoArgs(function_.get()));
    if (value_ == nullptr) PyErr_Fetch(&raised_[0], &raised_[1], &raised_[2]);
  }

  Outcome outcome() override {
    const Lock lock(state_);
    Outcome outcome;
    PyObject* value = value_ == nullptr ? Py_None : value_.get();
    const Owned raised = takeRaised();
    outcome.outOfMemory = PyErr_GivenExceptionMatches(raised.get(), PyExc_MemoryError) != 0;
    const Owned words = checked(
        PyObject_CallFunction(named("describe"), "OOO", function_.get(), value, raised.get()));
    outcome.result = text(words.get(), 0);
    outcome.raised = text(words.get(), 1);
    outcome.arguments = text(words.get(), 2);
    return outcome;
  }

  void release() override {
    PyEval_RestoreThread(state_);
    checked(PyObject_CallFunction(named("release"), "O", function_.get()));
    function_.reset();
    value_.reset();
    PyGILState_Release(ensured_);
  }

 private:
  static PyObject* named(const char* name) { return PyDict_GetItemString(gNames, name); }

  static std::string text(PyObject* words, Py_ssize_t index) {
    return PyUnicode_AsUTF8(PyTuple_GetItem(words, index));
  }

  // The exception, or None.
  Owned takeRaised() {
    if (raised_[0] == nullptr) return Owned(Py_NewRef(Py_None));
    PyErr_NormalizeException(&raised_[0], &raised_[1], &raised_[2]);
    Py_CLEAR(raised_[0]);
    Py_CLEAR(raised_[2]);
    return Owned(std::exchange(raised_[1], nullptr));
  }

  std::string call_;
  PyGILState_STATE ensured_ = PyGILState_UNLOCKED;
  PyThreadState* state_ = nullptr;
  Owned function_;
  Owned value_;
  PyObject* raised_[3] = {};  // as of PyErr_Fetch
};

std::unique_ptr<Caller> newCaller(const std::string& call) {
  return std::make_unique<PythonCaller>(call);
}

TEST(PythonWithLittleMemory, FailsAsDocumentedOrSucceeds) {
  expectHostToFailOrSucceed(1, newCaller);
}

TEST(PythonWithLittleMemory, FailsAsDocumentedOrSucceedsOnThreadsAtOnce) {
  expectHostToFailOrSucceed(4, newCaller);
}

}  // namespace

int main(int count, char** arguments) {
  testing::InitGoogleTest(&count, arguments);
  // Objects would come from Python's own blocks otherwise, of which some are always free.
  setenv("PYTHONMALLOC", "malloc", 1);
  Py_InitializeEx(0);
  gNames = PyModule_GetDict(PyImport_AddModule("__main__"));
  PyDict_SetItemString(gNames, "folder_of_module",
                       checked(PyUnicode_FromString(QUEN_IO_MODULE_FOLDER)).get());
  checked(PyRun_String(kScript, Py_file_input, gNames, gNames));
  PyThreadState* state = PyEval_SaveThread();
  const int status = RUN_ALL_TESTS();
  PyEval_RestoreThread(state);
  Py_FinalizeEx();
  return status;
}
