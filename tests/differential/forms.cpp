#include "tests/differential/forms.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "quen/io/entry_points.h"
#include "runtime/recording/recording.h"
#include "runtime/small/host.h"

namespace fs = std::filesystem;

namespace quen::differential {

// An argument as the entry point takes it.
struct Passed {
  void* object = nullptr;
  const char* text = nullptr;
  std::int64_t number = 0;

  template <class T>
  T as() const {
    if constexpr (std::is_same_v<T, void*>) {
      return object;
    } else if constexpr (std::is_same_v<T, const char*>) {
      return text;
    } else {
      return static_cast<T>(number);
    }
  }
};

namespace {

using Kind = Argument::Kind;

std::string describeObject(void* object, const std::vector<Passed>& passed) {
  if (object == nullptr) return "null";
  if (!passed.empty() && object == passed[0].object) return "the receiver";
  const std::string type = small::className(object);
  if (type == "String") return "String \"" + small::stringBytes(object) + '"';
  if (const std::optional<std::string> text = small::pathText(object)) {
    return type + " \"" + *text + '"' + (small::hasParentTraversal(object) ? " traversal" : "");
  }
  std::string list = type + ':';
  for (const std::string& element : small::listStrings(object)) list += " \"" + element + '"';
  return list;
}

template <class Result, class... Parameters, std::size_t... Indices>
std::string invoke(Result (*function)(Parameters...), const std::vector<Passed>& passed,
                   std::index_sequence<Indices...>) {
  if constexpr (std::is_void_v<Result>) {
    function(passed.at(Indices).template as<Parameters>()...);
    return "nothing";
  } else {
    const Result result = function(passed.at(Indices).template as<Parameters>()...);
    if constexpr (std::is_same_v<Result, void*>) return describeObject(result, passed);
    if constexpr (std::is_same_v<Result, bool>) return result ? "true" : "false";
    if constexpr (std::is_integral_v<Result>) return std::to_string(result);
  }
}

template <class Result, class... Parameters>
std::string callSymbol(std::type_identity<Result(Parameters...)>, void* symbol,
                       const std::vector<Passed>& passed) {
  return invoke(reinterpret_cast<Result (*)(Parameters...)>(symbol), passed,
                std::index_sequence_for<Parameters...>());
}

// The symbol is the name, except for the entry point with C++ linkage.
#define TYPED_ENTRY(name, symbol, roles)                                          \
  EntryPoint {                                                                    \
#name, roles, symbol, [](void* function, const std::vector<Passed>& passed) {   \
      return callSymbol(std::type_identity<decltype(::name)>(), function, passed);  \
    } \
  }
#define ENTRY(name, roles) TYPED_ENTRY(name, #name, roles)

void replaceAll(std::string& text, const std::string& old, std::string_view replacement) {
  for (std::size_t at = 0; (at = text.find(old, at)) != std::string::npos;) {
    text.replace(at, old.size(), replacement);
    at += replacement.size();
  }
}

// Descriptors are numbered from the lowest free one, so this number grows when one is leaked.
int lowestFreeDescriptor() {
  const int descriptor = fcntl(STDIN_FILENO, F_DUPFD, 0);
  close(descriptor);
  return descriptor;
}

// A time is compared as "now" or by its second: the conversion reads two clocks, and any time can
// pass between the two readings.
std::string describeTime(const std::string& milliseconds) {
  const std::int64_t second = std::stoll(milliseconds) / 1000;
  constexpr std::int64_t kHour = 3600;
  return std::abs(second - std::time(nullptr)) < kHour ? "now" : std::to_string(second) + " s";
}

// Owns the objects and texts of one call.
class Passing {
 public:
  Passing(const Form& form, const EntryPoint& entry, const Arguments& arguments) {
    texts_.reserve(arguments.size());
    for (std::size_t i = 0; i < arguments.size(); ++i) {
      passed_.push_back(pass(form, entry.roles.at(i), arguments[i]));
    }
  }

  const std::vector<Passed>& passed() const { return passed_; }

  std::string bytes() const {
    if (array_ == nullptr) return "";
    const std::vector<std::uint8_t> contents = small::byteArrayContents(array_);
    return {contents.begin(), contents.end()};
  }

  void name(recording::Recorder& recorder) const {
    for (std::size_t i = 0; i < passed_.size(); ++i) {
      if (passed_[i].object == nullptr) continue;
      recorder.names.emplace(passed_[i].object, i == 0 ? "self" : "argument " + std::to_string(i));
    }
  }

 private:
  Passed pass(const Form& form, char role, const Argument& argument) {
    // '@' is replaced in paths only, not in contents to write.
    const bool isPath = role != 't' && role != 'B';
    texts_.push_back(isPath ? form.expand(argument.text) : argument.text);
    const std::string& text = texts_.back();
    switch (argument.kind) {
      case Kind::kNull: return {};
      case Kind::kText:
        // A parameter that takes an object or a text is a void*.
        return {const_cast<char*>(text.c_str()), text.c_str()};
      case Kind::kPath: return {small::newPath(text)};
      case Kind::kFolderPath: return {small::newFolderPath(text)};
      case Kind::kFilePath: return {small::newFilePath(text)};
      case Kind::kString: return {small::newString(text)};
      case Kind::kBytes:
        array_ = small::newByteArray(std::vector<std::uint8_t>(text.begin(), text.end()));
        return {array_};
      case Kind::kNumber: break;
    }
    return {nullptr, nullptr, argument.number};
  }

  std::vector<std::string> texts_;
  std::vector<Passed> passed_;
  void* array_ = nullptr;
};

void enterFolder(const fs::path& folder) {
  if (chdir(folder.c_str()) == 0) return;
  fs::create_directories(folder);
  fs::current_path(folder);
}

void arrange(recording::Recorder& recorder, const Circumstances& circumstances) {
  if (circumstances.refusesBytes) recorder.refusal = "";
  if (circumstances.knowsQualifiedNamesOnly) recorder.unknownClasses = {"FolderPath"};
  for (const std::string& root : circumstances.windowsRoots) recorder.windowsRoots.insert(root);
  recorder.interfere = circumstances.interfere;
  if (circumstances.throwingOperation >= 0) {
    auto remaining = std::make_shared<int>(circumstances.throwingOperation);
    recorder.interfere = [remaining](const std::string&) {
      if ((*remaining)-- == 0) throw std::bad_alloc();
    };
  }
}

std::string raised() {
  const std::optional<small::Exception> exception = small::takeException();
  return exception ? exception->className + ": " + exception->message : "";
}

// Either exception is allowed for a size that cannot be allocated (Allowed::kExhaustedMemory).
std::string thrownWith(const std::function<void()>& body) {
  try {
    body();
  } catch (const std::bad_alloc&) {
    return "no memory";
  } catch (const std::length_error&) {
    return "no memory";
  } catch (const std::exception& failure) {
    return failure.what();
  } catch (...) {
    return "something else";
  }
  return "";
}

}  // namespace

Argument null() { return {}; }
Argument text(std::string_view bytes) { return {Kind::kText, std::string(bytes)}; }
Argument path(std::string_view text) { return {Kind::kPath, std::string(text)}; }
Argument folderPath(std::string_view text) { return {Kind::kFolderPath, std::string(text)}; }
Argument filePath(std::string_view text) { return {Kind::kFilePath, std::string(text)}; }
Argument bytes(std::string_view contents) { return {Kind::kBytes, std::string(contents)}; }
Argument emptyBytes(std::size_t length) { return {Kind::kBytes, std::string(length, '\0')}; }
Argument number(std::int64_t value) { return {Kind::kNumber, {}, value}; }

const std::vector<EntryPoint>& entryPoints() {
  static const std::vector<EntryPoint> all = {
      ENTRY(__quen_propget_quen_io_Path_cwd, ""),
      ENTRY(quen_io_Path__cwdPath, ""),
      ENTRY(quen_io_Path_normalize, "o"),
      ENTRY(quen_io_Path__normalizePath, "p"),
      ENTRY(quen_io_Path_toAbsolute, "o"),
      ENTRY(quen_io_Path__absolutePath, "p"),
      ENTRY(quen_io_Path_parent, "o"),
      ENTRY(quen_io_Path__parentPath, "p"),
      ENTRY(quen_io_Path__isAbsolute, "o"),
      ENTRY(__quen_propget_quen_io_Path_isAbsolute, "o"),
      ENTRY(quen_io_Path__isNormalized, "o"),
      ENTRY(__quen_propget_quen_io_Path_isNormalized, "o"),
      ENTRY(quen_io_Path_relativize, "oo"),
      ENTRY(quen_io_Path__relativizePath, "pp"),
      ENTRY(quen_io_Path_resolve, "od"),
      ENTRY(quen_io_Path_resolve__dup2, "od"),
      ENTRY(quen_io_Path_resolve__dup3, "od"),
      ENTRY(quen_io_Path__resolvePath, "pp"),
      ENTRY(quen_io_Path_name, "o"),
      ENTRY(__quen_propget_quen_io_Path_name, "o"),
      ENTRY(quen_io_Path__pathName, "p"),
      ENTRY(quen_io_Path_extension, "o"),
      ENTRY(__quen_propget_quen_io_Path_extension, "o"),
      ENTRY(quen_io_Path__pathExtension, "p"),
      ENTRY(quen_io_Path__pathKindPath, "p"),
      ENTRY(quen_io_Path__rootStringsNative, ""),
      ENTRY(quen_io_FileInputStream__existsPath, "p"),
      ENTRY(quen_io_FileInputStream__isRegularPath, "p"),
      ENTRY(quen_io_FileInputStream__sizePath, "p"),
      ENTRY(quen_io_Path__exists, "o"),
      ENTRY(quen_io_Path__isRegular, "o"),
      ENTRY(quen_io_Path__isDirectory, "o"),
      ENTRY(quen_io_Path__isSymlink, "o"),
      ENTRY(quen_io_Path__size, "o"),
      ENTRY(quen_io_Path__lastModified, "o"),
      ENTRY(__quen_propget_quen_io_Path_exists, "o"),
      ENTRY(__quen_propget_quen_io_Path_isRegular, "o"),
      ENTRY(__quen_propget_quen_io_Path_isDirectory, "o"),
      ENTRY(__quen_propget_quen_io_Path_isSymlink, "o"),
      ENTRY(__quen_propget_quen_io_Path_size, "o"),
      ENTRY(__quen_propget_quen_io_Path_lastModified, "o"),
      ENTRY(quen_io_Path_remove, "o"),
      ENTRY(quen_io_Path_rename, "on"),
      ENTRY(quen_io_FilePath_touch, "o"),
      ENTRY(quen_io_Path_touch, "o"),
      ENTRY(quen_io_FolderPath__mkdirNative, "p"),
      ENTRY(quen_io_FolderPath__mkdirsNative, "p"),
      ENTRY(quen_io_FolderPath__removeAllNative, "p"),
      TYPED_ENTRY(Quen_isUnsafeRecursiveDeletePath, "_Z32Quen_isUnsafeRecursiveDeletePathPKc", "p"),
      ENTRY(quen_io_FolderPath__listNamesNative, "p"),
      ENTRY(quen_io_FileReader__readAllTextPath, "p"),
      ENTRY(quen_io_FileInputStream__readTextFromOffsetPath, "p#"),
      ENTRY(quen_io_FileReader__readPrefixPath, "p#"),
      ENTRY(quen_io_FileInputStream__readBytesPath, "p#B#"),
      ENTRY(quen_io_FileWriter__truncatePath, "p"),
      ENTRY(quen_io_FileOutputStream__truncatePath, "p"),
      ENTRY(quen_io_FileWriter__appendPath, "pt"),
      ENTRY(quen_io_FileOutputStream__appendTextPath, "pt"),
      ENTRY(quen_io_FileWriter__writePath, "pt"),
      ENTRY(quen_io_Files__writeBytesPath, "pB"),
      ENTRY(quen_io_Files__writeBytesWithPrefixPath, "ptB"),
      ENTRY(quen_io_FileOutputStream__appendBytesPath, "pB"),
      ENTRY(quen_io_FileWriter__openPath, "pa"),
      ENTRY(quen_io_FileWriter__writeHandle, "ht"),
      ENTRY(quen_io_FileWriter__flushHandle, "h"),
      ENTRY(quen_io_FileWriter__closeHandle, "h"),
      ENTRY(quen_io_toml_TOML__readStrictPath, "p"),
      ENTRY(quen_data_internal_DocumentIndexStore__writeAtomic, "pt"),
  };
  return all;
}

#undef ENTRY
#undef TYPED_ENTRY

const EntryPoint& entryPoint(std::string_view name) {
  const auto found = std::find_if(entryPoints().begin(), entryPoints().end(),
                                  [&](const EntryPoint& each) { return each.name == name; });
  if (found == entryPoints().end())
    throw std::invalid_argument("no entry point " + std::string(name));
  return *found;
}

std::string describe(const Outcome& outcome) {
  const auto cut = [](const std::string& text) {
    constexpr std::size_t kMost = 300;
    if (text.size() <= kMost) return text;
    return text.substr(0, kMost) + "... (" + std::to_string(text.size()) + " bytes)";
  };
  std::string lines = "  result: " + cut(outcome.result) + "\n";
  if (!outcome.exception.empty()) lines += "  raised: " + outcome.exception + "\n";
  if (!outcome.thrown.empty()) lines += "  left as: " + outcome.thrown + "\n";
  if (!outcome.bytes.empty()) lines += "  Byte[]: " + cut(outcome.bytes) + "\n";
  if (outcome.leaksDescriptor) lines += "  a descriptor stays open\n";
  for (const std::string& call : outcome.calls) lines += "  " + cut(call) + "\n";
  return lines;
}

Form::Form(std::string name, const std::string& library, fs::path folder, Surroundings surroundings)
    : name_(std::move(name)), folder_(std::move(folder)), surroundings_(std::move(surroundings)) {
  void* loaded = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  for (const EntryPoint& entry : entryPoints()) {
    void* symbol = loaded == nullptr ? nullptr : dlsym(loaded, entry.symbol);
    if (symbol == nullptr) {
      std::fprintf(stderr, "%s\n", dlerror());
      std::abort();
    }
    symbols_.push_back(symbol);
  }
}

std::string Form::expand(std::string_view text) const {
  if (!text.starts_with('@')) return std::string(text);
  return folder_.native() + std::string(text.substr(1));
}

Outcome Form::call(const EntryPoint& entry, const Arguments& arguments,
                   const Circumstances& circumstances) const {
  if (circumstances.entersFolder) enterFolder(folder_);
  const small::Scope scope;
  const Passing passing(*this, entry, arguments);
  if (circumstances.exceptionPending) Quen_raise("IOException", "Raised before the call");
  using Of = recording::Recorder::Of;
  recording::Recorder recorder(surroundings_.otherThreads ? Of::kThisThread : Of::kAllThreads);
  passing.name(recorder);
  arrange(recorder, circumstances);

  const bool usesHandles = entry.roles.starts_with('h') || entry.roles.ends_with('a');
  const bool uncounted = usesHandles || surroundings_.otherThreads;
  const int descriptorBefore = uncounted ? 0 : lowestFreeDescriptor();
  Outcome outcome;
  void* symbol = symbols_.at(static_cast<std::size_t>(&entry - entryPoints().data()));
  surroundings_.before();
  outcome.thrown = thrownWith([&] { outcome.result = entry.call(symbol, passing.passed()); });
  surroundings_.after();
  outcome.leaksDescriptor = !uncounted && lowestFreeDescriptor() != descriptorBefore;
  outcome.exception = raised();
  outcome.calls = recorder.calls();
  outcome.bytes = passing.bytes();

  if (entry.name.ends_with("lastModified") && outcome.thrown.empty()) {
    outcome.result = describeTime(outcome.result);
  }
  hideFolder(outcome);
  return outcome;
}

void Form::hideFolder(Outcome& outcome) const {
  const std::string parent = folder_.parent_path().filename();
  const auto hideIn = [&](std::string& text) {
    replaceAll(text, folder_.native(), "@");
    replaceAll(text, parent, "form");
  };
  hideIn(outcome.result);
  for (std::string& call : outcome.calls) hideIn(call);
}

}  // namespace quen::differential
