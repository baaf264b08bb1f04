// The conformance kit over the operations of examples/python/own_objects.cpp, with an interpreter
// inside the program.

#include "examples/python/own_objects.cpp"
#include "tests/hosts/host_adapter.h"

namespace {

PyObject* gCollector = nullptr;

class PythonAdapter final : public quen::hosts::HostAdapter {
 public:
  void* newByteArray(const std::vector<std::uint8_t>& bytes) const override {
    const Gil gil;
    return newHandle(Owned(PyByteArray_FromStringAndSize(
        reinterpret_cast<const char*>(bytes.data()), static_cast<Py_ssize_t>(bytes.size()))));
  }

  void* newOtherObject() const override {
    const Gil gil;
    return newHandle(Owned(PyObject_CallNoArgs(reinterpret_cast<PyObject*>(&PyBaseObject_Type))));
  }

  std::string stringBytes(void* string) const override {
    const Gil gil;
    std::vector<Owned> kept;
    return std::string(bytesOf(handles().find(string), kept));
  }

  std::vector<void*> listElements(void* list) const override {
    const Gil gil;
    PyObject* known = handles().find(list);
    std::vector<void*> elements;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(known); ++i)
      elements.push_back(newHandle(Owned(Py_NewRef(PyList_GET_ITEM(known, i)))));
    return elements;
  }

  bool isFolderPath(void* path) const override {
    return Quen_isInstanceOf(path, "quen.io.FolderPath") != 0;
  }

  std::optional<bool> sameObject(void* one, void* other) const override {
    const Gil gil;
    return handles().find(one) == handles().find(other);
  }

  // The youngest generation only, so that the run takes seconds instead of minutes.
  void collect() const override {
    const Gil gil;
    Owned(PyObject_CallFunction(gCollector, "i", 0));
  }

  // A frame for the handles of the whole run, which stays when the thread ends.
  void enterThread() const override { static_cast<void>(new Frame); }

 private:
  void* newOf(const char* className, const std::string& text) const override {
    const Gil gil;
    const Owned module(PyImport_ImportModule("quen_io"));
    const Owned type(PyObject_GetAttrString(module.get(), className));
    return newHandle(Owned(PyObject_CallFunction(type.get(), "N", decoded(text).release())));
  }
};

}  // namespace

int main(int count, char** arguments) {
  PyImport_AppendInittab("quen_io", PyInit_quen_io);
  Py_InitializeEx(0);
  PyRun_SimpleString("import quen_io\nclass Home(quen_io.FolderPath): pass\nquen_io.Home = Home");
  gCollector = PyObject_GetAttrString(Owned(PyImport_ImportModule("gc")).get(), "collect");
  PyEval_SaveThread();  // the kit calls operations without the lock, as the module does
  const PythonAdapter adapter;
  adapter.enterThread();
  return quen::conformance::runConformance(adapter, count, arguments);
}
