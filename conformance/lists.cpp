// ArrayList, the only class that the module instantiates by name.

#include "conformance/operations.h"
#include "conformance/requirement.h"

namespace quen::conformance {

namespace {

constexpr std::size_t kManyElements = 10'000;

void* newList() { return made(operations::allocObject("ArrayList"), "the ArrayList"); }

void add(void* list, const std::string& bytes) {
  operations::addToArrayList(list, made(operations::allocString(bytes), "the String"));
}

void requireSize(std::size_t actual, std::size_t expected) {
  require(actual == expected,
          std::to_string(actual) + " elements, not " + std::to_string(expected));
}

void requireElements(const Adapter& adapter, void* list, const std::vector<std::string>& expected) {
  const std::vector<void*> elements = adapter.listElements(list);
  requireSize(elements.size(), expected.size());
  for (std::size_t i = 0; i < elements.size(); ++i) {
    const std::string what = "element " + std::to_string(i);
    requireEqual(what, adapter.stringBytes(made(elements[i], what)), expected[i]);
  }
}

void requireOrder(const Adapter& adapter) {
  void* list = newList();
  std::vector<std::string> expected;
  for (std::size_t i = 0; i < kManyElements; ++i) {
    expected.push_back(std::to_string(i));
    add(list, expected.back());
  }
  requireElements(adapter, list, expected);
}

// An object may have several handles, so only the adapter can tell that two are different.
bool isSame(const Adapter& adapter, void* one, void* other) {
  if (one == other) return true;
  const std::optional<bool> same = adapter.sameObject(one, other);
  if (!same) throw Skipped("the adapter has no sameObject");
  return *same;
}

void requireTheVeryObject(const Adapter& adapter) {
  void* list = newList();
  void* element = made(operations::allocString("a"), "the String");
  operations::addToArrayList(list, element);
  const std::vector<void*> elements = adapter.listElements(list);
  requireSize(elements.size(), 1);
  require(isSame(adapter, made(elements[0], "the element"), element), "another object");
}

}  // namespace

Requirements listRequirements() {
  return {
      {"Quen_allocObject(\"ArrayList\") makes an empty list",
       [](const Adapter& adapter) { requireElements(adapter, newList(), {}); }},

      {"Quen_allocObject(\"ArrayList\") makes a list of its own each time",
       [](const Adapter& adapter) {
         void* first = newList();
         void* second = newList();
         add(first, "a");
         add(second, "b");
         requireElements(adapter, first, {"a"});
         requireElements(adapter, second, {"b"});
       }},

      {"quen_collections_ArrayList_add keeps 10,000 elements in order", requireOrder},

      {"quen_collections_ArrayList_add keeps equal elements side by side",
       [](const Adapter& adapter) {
         void* list = newList();
         void* element = made(operations::allocString("a"), "the String");
         operations::addToArrayList(list, element);
         operations::addToArrayList(list, element);
         add(list, "a");
         requireElements(adapter, list, {"a", "a", "a"});
       }},

      {"quen_collections_ArrayList_add keeps the very object", requireTheVeryObject,
       Severity::kAdvised},
  };
}

}  // namespace quen::conformance
