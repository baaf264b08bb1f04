// The judge detects each fault of the faulty form, and reports nothing for a correct form.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>

#include "tests/differential/program.h"
#include "tests/support/sanitized.h"

namespace fs = std::filesystem;

namespace quen::differential {
namespace {

class JudgeOfAFaultyForm : public testing::Test {
 protected:
  static Judge& judge() {
    static Judge judge(QUEN_IO_FAULTY_LIBRARY);
    return judge;
  }

  void SetUp() override {
    judge().clear();
    judge().inBoth([](const fs::path& folder) {
      std::ofstream(folder / "file") << "0123456789";
      constexpr timespec kTime{kOldTime, 0};
      const std::array<timespec, 2> times = {kTime, kTime};
      utimensat(AT_FDCWD, (folder / "file").c_str(), times.data(), 0);
    });
  }
};

TEST_F(JudgeOfAFaultyForm, AcceptsWhatIsTheSame) {
  EXPECT_EQ(judge().compare("quen_io_Path_normalize", {path("a/../b")}), "");
  EXPECT_EQ(judge().compare("quen_io_FileReader__readAllTextPath", {text("@/file")}), "");
  EXPECT_EQ(judge().compareFolders(), "");
}

TEST_F(JudgeOfAFaultyForm, AcceptsTheFolderOfEitherFormInAText) {
  for (const Form* form : {&judge().plain(), &judge().module()}) {
    const std::string folder = form->folder();
    EXPECT_EQ(judge().compare("quen_io_Path_normalize", {path(folder + "/a/../b")}), "");
    const std::string parent = form->folder().parent_path().filename();
    EXPECT_EQ(judge().compare("quen_io_Path_normalize", {path(parent + "/a/../b")}), "");
  }
}

TEST_F(JudgeOfAFaultyForm, NoticesOtherBytesOnDisk) {
  EXPECT_EQ(judge().compare("quen_io_FileWriter__appendPath", {text("file"), text("x")}), "");
  EXPECT_NE(judge().compareFolders(), "");
}

TEST_F(JudgeOfAFaultyForm, NoticesAnotherResult) {
  EXPECT_NE(judge().compare("quen_io_FileInputStream__readBytesPath",
                            {text("file"), number(6), emptyBytes(4), number(4)}),
            "");
}

TEST_F(JudgeOfAFaultyForm, NoticesAnotherOrderOfRuntimeCalls) {
  EXPECT_NE(judge().compare("quen_io_Path__isNormalized", {path("a/b")}), "");
}

TEST_F(JudgeOfAFaultyForm, NoticesAnotherMessage) {
  EXPECT_NE(judge().compare("quen_io_Path_remove", {path("missing")}), "");
}

TEST_F(JudgeOfAFaultyForm, NoticesADescriptorThatStaysOpenWhenTheRuntimeThrows) {
  if (quen::tests::kSanitized) GTEST_SKIP() << "the leak checker notices it, too";
  Circumstances throws;
  throws.throwingOperation = 2;
  const std::string difference =
      judge().compare("quen_io_FolderPath__listNamesNative", {text("@")}, throws);
  EXPECT_NE(difference.find("a descriptor stays open"), std::string::npos) << difference;
}

TEST_F(JudgeOfAFaultyForm, NoticesAChangedTime) {
  EXPECT_EQ(judge().compare("quen_io_FileInputStream__sizePath", {text("file")}), "");
  EXPECT_NE(judge().compareFolders(), "");
}

TEST_F(JudgeOfAFaultyForm, NoticesAReaderThatDoesNotSeekInAPipe) {
  judge().inBoth([](const fs::path& folder) { mkfifo((folder / "pipe").c_str(), 0600); });
  // O_RDWR opens a FIFO without waiting for the other end (fifo(7)).
  std::fstream plain(judge().plain().folder() / "pipe");
  std::fstream module(judge().module().folder() / "pipe");
  module << "0123" << std::flush;

  EXPECT_NE(judge().compare("quen_io_FileInputStream__readBytesPath",
                            {text("pipe"), number(0), emptyBytes(4), number(4)}),
            "");
}

// The functions that the header declares.
std::set<std::string> declared() {
  std::ifstream header(QUEN_IO_ENTRY_POINTS_HEADER);
  std::string text;
  for (std::string line; std::getline(header, line);) text += line.substr(0, line.find("//")) + ' ';

  const std::regex declaration(R"((\w+)\([^()]*\);)");
  std::set<std::string> names;
  for (std::sregex_iterator found(text.begin(), text.end(), declaration), end; found != end;
       ++found) {
    names.insert((*found)[1]);
  }
  return names;
}

TEST(EntryPoints, AreAllCompared) {
  std::set<std::string> compared;
  for (const EntryPoint& entry : entryPoints()) compared.emplace(entry.name);

  EXPECT_EQ(compared, declared());
}

}  // namespace
}  // namespace quen::differential
