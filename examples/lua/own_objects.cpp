// The module quen_io for Lua with operations of its own over Lua's objects: a String is a string,
// an ArrayList a table, and path objects and byte arrays are those of the classes in binding.h. The
// module's object pointers are handles.
//
// Rules: a state of Lua belongs to one thread at a time, and the module calls its operations on the
// thread of the call, so they need no lock. An error of Lua may not pass through the module, whose
// destructors it would skip: every operation that touches objects runs below a lua_pcall, and an
// error there, which is exhausted memory, becomes std::bad_alloc. Quen_raise and
// Quen_hasPendingError, which the module calls under locks of its own, are those of
// quen::runtime_parts and do not touch the state.

#include <quen/io/operations.h>

#include <functional>
#include <new>
#include <utility>

#include "binding.h"

namespace fs = std::filesystem;

namespace {

using namespace quen::lua;

// For tests: a collection inside every operation that touches objects.
const bool gCollect = std::getenv("QUEN_IO_COLLECT") != nullptr;

// Handles: each is an address in a range in which nothing is ever stored, so that objects are told
// from texts by the address alone. The range is never touched and takes no memory.
constexpr lua_Integer kMostHandles = lua_Integer{1} << 26;
char gRange[kMostHandles];

bool isHandle(void* pointer) {
  return std::less_equal<>()(gRange, pointer) && std::less<>()(pointer, gRange + kMostHandles);
}

// The objects behind the handles are in a table of the registry, from 1 on.
const char kHandles = 0;

// Pushes the object, above some values that are of no use.
void pushObject(lua_State* state, void* handle) {
  if (!isHandle(handle)) return lua_pushnil(state);
  lua_rawgetp(state, LUA_REGISTRYINDEX, &kHandles);
  lua_rawgeti(state, -1, static_cast<char*>(handle) - gRange);
}

// One call of an entry point. Its handles end with it: calls are nested, since finalizers that run
// inside an operation may call entry points, and each has a pending exception of its own.
class Frame {
 public:
  explicit Frame(lua_State* state) : state_(state), outer_(std::exchange(tInnermost, this)) {
    if (outer_ != nullptr) first_ = last_ = outer_->last_;
  }

  ~Frame() {
    tInnermost = outer_;
    if (first_ == last_) return;
    lua_rawgetp(state_, LUA_REGISTRYINDEX, &kHandles);
    for (; last_ > first_; --last_) {
      lua_pushnil(state_);
      lua_rawseti(state_, -2, last_);  // of a key that there is, which takes no memory
    }
    lua_pop(state_, 1);
  }

  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;

  // Pops a value.
  void* newHandle(lua_State* state) {
    if (last_ + 1 == kMostHandles) luaL_error(state, "too many objects");
    lua_rawgetp(state, LUA_REGISTRYINDEX, &kHandles);
    lua_insert(state, -2);
    lua_rawseti(state, -2, last_ + 1);
    lua_pop(state, 1);
    return gRange + ++last_;
  }

  lua_State* state() const { return state_; }

  static Frame& current() { return *tInnermost; }

 private:
  static inline thread_local Frame* tInnermost = nullptr;

  lua_State* state_;
  Frame* outer_;
  lua_Integer first_ = 0;
  lua_Integer last_ = 0;
  quen::parts::PendingExceptionScope pending_;
};

// Runs the body of an operation with an empty stack, protected from errors of Lua. It may not have
// objects that need a destructor.
template <class Body>
void withState(Body body) {
  lua_State* state = Frame::current().state();
  if (lua_checkstack(state, 3) == 0) throw std::bad_alloc();
  lua_pushcfunction(state, [](lua_State* inner) {
    auto* own = static_cast<Body*>(lua_touserdata(inner, 1));
    lua_settop(inner, 0);
    if (gCollect) lua_gc(inner, LUA_GCCOLLECT);
    (*own)(inner);
    return 0;
  });
  lua_pushlightuserdata(state, &body);
  if (lua_pcall(state, 1, 0, 0) == LUA_OK) return;
  lua_pop(state, 1);
  throw std::bad_alloc();
}

void* newHandle(lua_State* state) { return Frame::current().newHandle(state); }

class Conversion {
 public:
  Conversion(lua_State* state, Parameters parameters) : parameters_(parameters), frame_(state) {}

  void* takeObject(lua_State* state, int index) {
    if (lua_isnil(state, index)) return nullptr;
    if (parameters_.takesText && lua_type(state, index) == LUA_TSTRING)
      return const_cast<char*>(textOf(state, index));
    lua_pushvalue(state, index);
    return frame_.newHandle(state);
  }

  void finish(lua_State* state) {
    if ((raised_ = quen::parts::takeException())) raise(state, *raised_);
  }

  void give(lua_State* state, bool result) { lua_pushboolean(state, result); }
  void give(lua_State* state, std::int64_t result) { lua_pushinteger(state, result); }
  void give(lua_State* state, void* result) { pushObject(state, result); }

 private:
  Parameters parameters_;
  Frame frame_;
  std::optional<quen::parts::Exception> raised_;
};

// Pushes the object and its bytes, if it is a Byte[]; otherwise gives the type that it has instead.
bool pushBytes(lua_State* state, void* object, std::string_view& bytes, const char*& otherType) {
  pushObject(state, object);
  if (!isInstance(state, -1, "Byte[]")) {
    otherType = luaL_typename(state, -1);
    return false;
  }
  lua_getfield(state, -1, "bytes");
  bytes = viewOf(state, -1);
  return true;
}

}  // namespace

// The operations that touch objects. quen/io/operations.h documents each.

void* Quen_allocString(const std::string& bytes) {
  void* handle = nullptr;
  withState([&](lua_State* state) {
    push(state, bytes);
    handle = newHandle(state);
  });
  return handle;
}

void* Quen_allocTypedPathObjectFromPath(const fs::path& path, bool nonFolder,
                                        bool explicitWindowsRoot, bool parentTraversal) {
  const std::string text = Quen_visiblePathString(path, explicitWindowsRoot);
  void* handle = nullptr;
  withState([&](lua_State* state) {
    pushNewPath(state, text, !nonFolder, parentTraversal);
    handle = newHandle(state);
  });
  return handle;
}

// Strings of Lua do not move; the handle keeps this one.
const char* Quen_filePathFromObject(void* object) {
  const char* text = nullptr;
  if (object == nullptr) return text;
  withState([&](lua_State* state) {
    pushObject(state, object);
    if (!isInstance(state, -1, "Path")) return;
    if (lua_getfield(state, -1, "_path") != LUA_TSTRING) return;
    text = lua_tostring(state, -1);
    newHandle(state);
  });
  return text;
}

bool Quen_readByteArrayData(void* object, std::vector<std::uint8_t>& bytes, std::string& error) {
  std::string_view found;
  const char* type = nullptr;
  // The object keeps its string, since nothing of Lua runs until it is copied.
  withState([&](lua_State* state) { pushBytes(state, object, found, type); });
  bytes.assign(found.begin(), found.end());
  if (type != nullptr) error = std::string("Expected Byte[] but got ") + type;
  return type == nullptr;
}

bool Quen_writeByteArrayData(void* object, const std::uint8_t* bytes, std::uint64_t count,
                             std::string& error) {
  const char* type = nullptr;
  bool fits = true;
  withState([&](lua_State* state) {
    std::string_view before;
    if (!pushBytes(state, object, before, type)) return;
    fits = count <= before.size();
    if (!fits) return;
    push(state, {reinterpret_cast<const char*>(bytes), count});
    push(state, before.substr(count));
    lua_concat(state, 2);
    lua_setfield(state, -3, "bytes");
  });
  if (type != nullptr) error = std::string("Expected Byte[] but got ") + type;
  if (!fits) error = "Byte[] is too short";
  return type == nullptr && fits;
}

bool hasObjectMagic(void* pointer) { return isHandle(pointer); }

void* Quen_allocObject(const char*) {  // "ArrayList"
  void* handle = nullptr;
  withState([&](lua_State* state) {
    lua_newtable(state);
    handle = newHandle(state);
  });
  return handle;
}

std::int64_t Quen_getField_i64(void* object, const char* field) {
  std::int64_t value = 0;
  withState([&](lua_State* state) {
    pushObject(state, object);
    if (!lua_istable(state, -1)) return;
    lua_getfield(state, -1, field);
    value = lua_isboolean(state, -1) ? lua_toboolean(state, -1) : lua_tointeger(state, -1);
  });
  return value;
}

void Quen_setField_ptr(void* object, const char* field, void* value) {
  withState([&](lua_State* state) {
    pushObject(state, object);
    if (!lua_istable(state, -1)) return;
    const int target = lua_gettop(state);
    pushObject(state, value);
    lua_setfield(state, target, field);
  });
}

int Quen_isInstanceOf(void* object, const char* className) {
  bool is = false;
  if (object == nullptr) return 0;
  withState([&](lua_State* state) {
    pushObject(state, object);
    is = isInstance(state, -1, className);
  });
  return is ? 1 : 0;
}

void quen_collections_ArrayList_add(void* list, void* element) {
  withState([&](lua_State* state) {
    pushObject(state, list);
    const int target = lua_gettop(state);
    pushObject(state, element);
    lua_rawseti(state, target, static_cast<lua_Integer>(lua_rawlen(state, target)) + 1);
  });
}

int luaopen_quen_io(lua_State* state) {
  lua_newtable(state);
  lua_rawsetp(state, LUA_REGISTRYINDEX, &kHandles);
  return makeModule<Conversion>(state);
}
