// ArrayList, the one class of which the module makes objects by name.

#include "conformance/requirement.h"
#include "quen/io/operations.h"

namespace quen::conformance {

namespace {

constexpr std::size_t kManyElements = 10'000;

void* newList() { return made(Quen_allocObject("ArrayList"), "the ArrayList"); }

void add(void* list, const std::string& bytes) {
  quen_collections_ArrayList_add(list, made(Quen_allocString(bytes), "the String"));
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

      {"quen_collections_ArrayList_add keeps the very object, and equal ones side by side",
       [](const Adapter& adapter) {
         void* list = newList();
         void* element = made(Quen_allocString("a"), "the String");
         quen_collections_ArrayList_add(list, element);
         quen_collections_ArrayList_add(list, element);
         add(list, "a");
         const std::vector<void*> elements = adapter.listElements(list);
         requireSize(elements.size(), 3);
         require(elements[0] == element && elements[1] == element, "another object");
       }},
  };
}

}  // namespace quen::conformance
