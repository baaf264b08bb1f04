// The lexical operations on random texts, compared with std::filesystem::path.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <string_view>

#include "quen/io/entry_points.h"
#include "quen/io/operations.h"
#include "runtime/small/host.h"
#include "tests/support/boundary_test.h"
#include "tests/support/generator.h"
#include "tests/support/path_objects.h"

namespace fs = std::filesystem;
namespace small = quen::small;
using namespace quen::tests;

namespace {

// For each of the tests in this file.
constexpr std::size_t kTexts = generatedInputs(250'000);

// Few letters and many dots make "." and ".." frequent.
constexpr std::string_view kAlphabet = "ab..../\\/";
constexpr std::size_t kLongest = 24;

// A reference that is not implemented like the one in the module.
bool hasParentSegment(std::string text) {
  std::replace(text.begin(), text.end(), '\\', '/');
  return ("/" + text + "/").find("/../") != std::string::npos;
}

// A random path object: a folder or not, with or without the sticky parent-traversal flag.
struct RandomPath {
  std::string text;
  bool folder;
  bool sticky;
  void* object;

  const char* chars() const { return text.c_str(); }
  fs::path path() const { return text; }
  bool traversal() const { return sticky || hasParentSegment(text); }
};

class GeneratedPaths : public BoundaryTest {
 protected:
  // Calls the body with random paths until it fails.
  template <typename Body>
  void forEachPath(Body body) {
    for (std::size_t i = 0; i < kTexts; ++i) {
      const small::Scope objectsOfThisPath;
      const RandomPath path = generate();
      body(path);
      if (HasFailure()) {
        FAIL() << generator.describe() << "\n  path " << i << ": " << stateOf(path.object);
      }
    }
  }

  RandomPath generate() {
    const std::string text = generator.text(kAlphabet, kLongest);
    const bool folder = generator.coin();
    const bool sticky = generator.below(4) == 0;
    return {text, folder, sticky, Quen_allocTypedPathObjectFromPath(text, !folder, false, sticky)};
  }

  Generator generator;
};

TEST_F(GeneratedPaths, NormalizeAsTheStandardLibraryDoes) {
  forEachPath([](const RandomPath& path) {
    const fs::path normal = path.path().lexically_normal();

    EXPECT_EQ(stateOf(quen_io_Path_normalize(path.object)),
              (PathState{normal, path.folder, path.traversal()}));
    EXPECT_EQ(text(quen_io_Path__normalizePath(path.chars())), normal);
  });
}

TEST_F(GeneratedPaths, AreAbsoluteAndNormalizedAsTheStandardLibraryHasIt) {
  forEachPath([](const RandomPath& path) {
    const bool absolute = path.path().has_root_directory();
    const bool normalized =
        !path.text.empty() && path.path().compare(path.path().lexically_normal()) == 0;

    EXPECT_EQ(quen_io_Path__isAbsolute(path.object), absolute);
    EXPECT_EQ(__quen_propget_quen_io_Path_isAbsolute(path.object), absolute);
    EXPECT_EQ(quen_io_Path__isNormalized(path.object), normalized);
    EXPECT_EQ(__quen_propget_quen_io_Path_isNormalized(path.object), normalized);
  });
}

TEST_F(GeneratedPaths, HaveTheParentThatTheStandardLibraryFinds) {
  forEachPath([](const RandomPath& path) {
    const fs::path parent = path.path().parent_path().lexically_normal();

    EXPECT_EQ(stateOf(quen_io_Path_parent(path.object)),
              parent.empty() ? PathState{} : (PathState{parent, true, path.traversal()}));
    EXPECT_EQ(text(quen_io_Path__parentPath(path.chars())), parent);
  });
}

TEST_F(GeneratedPaths, HaveTheNameAndExtensionThatTheStandardLibraryFinds) {
  forEachPath([](const RandomPath& path) {
    const std::string name = path.path().filename();
    const std::string dotted = path.path().extension();
    const std::string extension = dotted.empty() ? "" : dotted.substr(1);

    EXPECT_EQ(text(quen_io_Path_name(path.object)), name);
    EXPECT_EQ(text(__quen_propget_quen_io_Path_name(path.object)), name);
    EXPECT_EQ(text(quen_io_Path__pathName(path.chars())), name);
    EXPECT_EQ(text(quen_io_Path_extension(path.object)), extension);
    EXPECT_EQ(text(__quen_propget_quen_io_Path_extension(path.object)), extension);
    EXPECT_EQ(text(quen_io_Path__pathExtension(path.chars())), extension);
  });
}

TEST_F(GeneratedPaths, ResolveAsTheStandardLibraryJoins) {
  constexpr std::array kOverloads = {quen_io_Path_resolve, quen_io_Path_resolve__dup2,
                                     quen_io_Path_resolve__dup3};

  forEachPath([&](const RandomPath& base) {
    RandomPath operand = generate();
    const auto resolve = kOverloads[generator.below(kOverloads.size())];

    const bool replaces = operand.path().has_root_directory();
    const fs::path joined = replaces ? operand.path() : base.path() / operand.path();
    const std::string resolved = joined.lexically_normal();
    const bool folder = operand.text.ends_with('/') || operand.text.ends_with('\\');
    const bool ofBase = !replaces && base.traversal();

    EXPECT_EQ(stateOf(resolve(base.object, operand.object)),
              (PathState{resolved, folder, operand.traversal() || ofBase}));
    EXPECT_EQ(stateOf(resolve(base.object, operand.text.data())),
              (PathState{resolved, folder, hasParentSegment(operand.text) || ofBase}));
    const std::string expected = base.text.empty()      ? operand.text
                                 : operand.text.empty() ? base.text
                                                        : resolved;
    EXPECT_EQ(text(quen_io_Path__resolvePath(base.chars(), operand.chars())), expected);
    if (HasFailure()) FAIL() << "the operand was " << stateOf(operand.object);
  });
}

}  // namespace
