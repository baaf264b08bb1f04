#include "runtime/recording/recording.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <utility>

#include "runtime/small/host.h"
#include "runtime/small/operations.h"

namespace fs = std::filesystem;
namespace small = quen::small;
namespace operations = quen::small::operations;
using quen::recording::Recorder;

namespace {

std::atomic<Recorder*> gRecorder{nullptr};

// Guards gCalls.
std::mutex gCallsMutex;
std::vector<std::string> gCalls;

// The recorder of this thread alone, and its calls.
thread_local Recorder* tRecorder = nullptr;
thread_local std::vector<std::string> tCalls;

Recorder* current() { return tRecorder != nullptr ? tRecorder : gRecorder.load(); }

// Adds a line and returns its index.
std::size_t addTo(std::vector<std::string>& calls, std::string line) {
  calls.push_back(std::move(line));
  return calls.size() - 1;
}

std::size_t add(std::string line) {
  if (tRecorder != nullptr) return addTo(tCalls, std::move(line));
  const std::lock_guard lock(gCallsMutex);
  return addTo(gCalls, std::move(line));
}

void append(std::size_t place, const std::string& text) {
  if (tRecorder != nullptr) {
    tCalls.at(place) += text;
    return;
  }
  const std::lock_guard lock(gCallsMutex);
  gCalls.at(place) += text;
}

std::string inQuotes(std::string_view bytes) { return '"' + std::string(bytes) + '"'; }

std::string describe(void* object) {
  if (object == nullptr) return "null";
  if (const Recorder* recorder = current()) {
    const auto name = recorder->names.find(object);
    if (name != recorder->names.end()) return name->second;
  }
  const std::string type = small::className(object);
  if (type.empty()) return "no object";
  const std::string shortType = type.substr(type.rfind('.') + 1);
  if (type == "String") return shortType + ' ' + inQuotes(small::stringBytes(object));
  const std::optional<std::string> path = small::pathText(object);
  return path ? shortType + ' ' + inQuotes(*path) : shortType;
}

std::string describe(const char* text) { return text == nullptr ? "null" : inQuotes(text); }
std::string describe(const std::string& bytes) { return inQuotes(bytes); }
std::string describe(const fs::path& path) { return inQuotes(path.native()); }
std::string describe(bool truth) { return truth ? "true" : "false"; }
std::string describe(int number) { return std::to_string(number); }
std::string describe(std::int64_t number) { return std::to_string(number); }
std::string describe(std::uint64_t number) { return std::to_string(number); }
std::string describe(QuenPathEntryKind kind) { return std::to_string(static_cast<int>(kind)); }

// Records a call before it is executed, so that a call that does not return is recorded as well.
// Returns the index of its line, to which the result is appended.
template <class... Arguments>
std::size_t note(const char* operation, const Arguments&... arguments) {
  if (current() == nullptr) return 0;
  std::string list;
  ((list += (list.empty() ? "" : ", ") + describe(arguments)), ...);
  const std::size_t place = add(std::string(operation) + '(' + list + ')');
  const Recorder* recorder = current();
  if (recorder->interfere) recorder->interfere(operation);
  return place;
}

template <class Answer>
Answer answered(std::size_t place, Answer answer) {
  if (current() != nullptr) append(place, " -> " + describe(answer));
  return answer;
}

// Whether every Byte[] is to be refused; `error` is then set to the reason.
bool isRefused(std::string& error) {
  const Recorder* recorder = current();
  if (recorder == nullptr || !recorder->refusal) return false;
  error = *recorder->refusal;
  return true;
}

}  // namespace

namespace quen::recording {

Recorder::Recorder(Of whose) : whose_(whose) {
  if (whose_ == Of::kThisThread) {
    tCalls.clear();
    tRecorder = this;
  } else {
    gCalls.clear();
    gRecorder = this;
  }
}

Recorder::~Recorder() {
  if (whose_ == Of::kThisThread) {
    tRecorder = nullptr;
  } else {
    gRecorder = nullptr;
  }
}

std::vector<std::string> Recorder::calls() const {
  if (whose_ == Of::kThisThread) return tCalls;
  const std::lock_guard lock(gCallsMutex);
  return gCalls;
}

int Recorder::raises() const {
  const std::vector<std::string> all = calls();
  return static_cast<int>(std::count_if(all.begin(), all.end(), [](const std::string& call) {
    return call.starts_with("Quen_raise(");
  }));
}

}  // namespace quen::recording

fs::path Quen_runtimeFsPath(const char* text) {
  note("Quen_runtimeFsPath", text);
  return operations::runtimeFsPath(text);
}

void* Quen_allocPathString(const fs::path& path, bool explicitWindowsRoot) {
  note("Quen_allocPathString", path, explicitWindowsRoot);
  return operations::allocPathString(path, explicitWindowsRoot);
}

std::string Quen_visiblePathString(const fs::path& path, bool explicitWindowsRoot) {
  note("Quen_visiblePathString", path, explicitWindowsRoot);
  return operations::visiblePathString(path, explicitWindowsRoot);
}

void* Quen_allocTypedPathObjectFromPath(const fs::path& path, bool nonFolder,
                                        bool explicitWindowsRoot, bool parentTraversal) {
  note("Quen_allocTypedPathObjectFromPath", path, nonFolder, explicitWindowsRoot, parentTraversal);
  return operations::allocTypedPathObjectFromPath(path, nonFolder, explicitWindowsRoot,
                                                  parentTraversal);
}

const char* Quen_filePathFromObject(void* object) {
  const std::size_t place = note("Quen_filePathFromObject", object);
  return answered(place, operations::filePathFromObject(object));
}

bool Quen_pathHasExplicitWindowsRoot(const char* text) {
  const std::size_t place = note("Quen_pathHasExplicitWindowsRoot", text);
  const Recorder* recorder = current();
  const bool told = recorder != nullptr && text != nullptr && recorder->windowsRoots.contains(text);
  return answered(place, told || operations::pathHasExplicitWindowsRoot(text));
}

QuenPathEntryKind Quen_pathEntryKind(const fs::path& path) {
  const std::size_t place = note("Quen_pathEntryKind", path);
  if (const Recorder* recorder = current()) {
    const auto told = recorder->kinds.find(path);
    if (told != recorder->kinds.end()) return answered(place, told->second);
  }
  return answered(place, operations::pathEntryKind(path));
}

void Quen_cachePathEntryKind(const fs::path& path, QuenPathEntryKind kind) {
  note("Quen_cachePathEntryKind", path, kind);
  operations::cachePathEntryKind(path, kind);
}

bool Quen_pathExists(const fs::path& path) {
  const std::size_t place = note("Quen_pathExists", path);
  return answered(place, operations::pathExists(path));
}

void* Quen_allocString(const std::string& bytes) {
  note("Quen_allocString", bytes);
  return operations::allocString(bytes);
}

bool Quen_readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string& error) {
  const std::size_t place = note("Quen_readByteArrayData", object);
  return answered(place, !isRefused(error) && operations::readByteArrayData(object, bytes, error));
}

bool Quen_writeByteArrayData(void* object, const std::uint8_t* bytes, std::uint64_t count,
                             std::string& error) {
  const std::size_t place = note("Quen_writeByteArrayData", object, count);
  return answered(place,
                  !isRefused(error) && operations::writeByteArrayData(object, bytes, count, error));
}

bool hasObjectMagic(void* pointer) {
  const std::size_t place = note("hasObjectMagic", pointer);
  return answered(place, operations::hasObjectMagic(pointer));
}

void* Quen_allocObject(const char* className) {
  note("Quen_allocObject", className);
  return operations::allocObject(className);
}

std::int64_t Quen_getField_i64(void* object, const char* field) {
  const std::size_t place = note("Quen_getField_i64", object, field);
  return answered(place, operations::getFieldI64(object, field));
}

void Quen_setField_ptr(void* object, const char* field, void* value) {
  note("Quen_setField_ptr", object, field, value);
  operations::setFieldPtr(object, field, value);
}

int Quen_isInstanceOf(void* object, const char* className) {
  const std::size_t place = note("Quen_isInstanceOf", object, className);
  const Recorder* recorder = current();
  if (recorder != nullptr && recorder->unknownClasses.contains(className)) {
    return answered(place, 0);
  }
  return answered(place, operations::isInstanceOf(object, className));
}

void quen_collections_ArrayList_add(void* list, void* element) {
  note("quen_collections_ArrayList_add", list, element);
  operations::addToArrayList(list, element);
}

void Quen_raise(const char* exceptionClass, const char* message) {
  note("Quen_raise", exceptionClass, message);
  operations::raise(exceptionClass, message);
}

int Quen_hasPendingError() {
  const std::size_t place = note("Quen_hasPendingError");
  return answered(place, operations::hasPendingError());
}
