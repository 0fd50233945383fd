// The file controller: file sets, fetching past the end, sources, options
// and writing with checkcontents.
#include <gtest/gtest.h>

#include "input/FileIOController.h"
#include "tests/input/ReadFixture.h"

namespace tessel::test {
namespace {

Ref<XMLWrapper> Stream(const OptionMap& options) {
  auto wrapper = MakeRef<XMLWrapper>();
  wrapper->LoadXML("<INPUTSTREAM type=\"1\">" + OptionsXml(options) + "</INPUTSTREAM>");
  return wrapper;
}

int32_t NumberOf(const std::function<void()>& body) {
  try {
    body();
  } catch (const Error& e) {
    return e.number();
  }
  return 0;
}

TEST(FileIOController, ThreeFilesThreeFetchesThenPastTheEnd) {
  TempDir dir;
  WriteFileText(dir / "a.csv", "A\n");
  WriteFileText(dir / "b.CSV", "B\n");
  WriteFileText(dir / "c.csv", "C\n");
  WriteFileText(dir / "d.txt", "D");
  FileIOController controller;
  controller.Initialise(Stream({{"filedir", dir.path().string()}, {"filter", "*.csv"}}));
  // Asking for the source before any fetch fails.
  EXPECT_NE(0, NumberOf([&] { controller.CurrentSource(); }));
  std::string seen;
  while (!controller.EOF_()) {
    seen += controller.FetchNextDataSet().ToString().substr(0, 1);
    EXPECT_EQ(std::string(1, static_cast<char>(seen.back() - 'A' + 'a')),
              FileSystemWrapper::BaseName(controller.CurrentSource()));
  }
  EXPECT_EQ("ABC", seen);
  EXPECT_EQ(8500, NumberOf([&] { controller.FetchNextDataSet(); }));
  // The last file stays the current source.
  EXPECT_EQ((dir / "c.csv").string(), controller.CurrentSource());
}

TEST(FileIOController, NoFilterOrNoMatchIsAnEmptySetAndAMissingDirectoryFails) {
  TempDir dir;
  FileIOController none;
  none.Initialise(Stream({{"filedir", dir.path().string()}}));
  EXPECT_TRUE(none.EOF_());
  EXPECT_EQ(8500, NumberOf([&] { none.FetchNextDataSet(); }));
  FileIOController noMatch;
  noMatch.Initialise(Stream({{"filedir", dir.path().string()}, {"filter", "*.xyz"}}));
  EXPECT_TRUE(noMatch.EOF_());
  FileIOController missing;
  EXPECT_EQ(8501, NumberOf([&] {
              missing.Initialise(Stream({{"filedir", (dir / "gone").string()}, {"filter", "*.csv"}}));
            }));
}

TEST(FileIOController, VanishedFileGivesEmptyAndBinaryGivesBytes) {
  TempDir dir;
  WriteFileText(dir / "a.bin", "\x01\x02");
  WriteFileText(dir / "b.bin", "x");
  FileIOController controller;
  controller.Initialise(Stream({{"filedir", dir.path().string()}, {"filter", "*.bin"}}));
  controller.SetOption("bintype", Variant(true));
  controller.SetOption("other", Variant(true));
  EXPECT_TRUE(controller.GetOption("bintype").ToBool());
  EXPECT_TRUE(controller.GetOption("other").IsEmpty());
  Variant bytes = controller.FetchNextDataSet();
  ASSERT_TRUE(bytes.IsArray());
  std::filesystem::remove(dir / "b.bin");
  EXPECT_TRUE(controller.FetchNextDataSet().IsEmpty());
  EXPECT_TRUE(controller.EOF_());
}

TEST(FileIOController, EncodingOptionDecodesText) {
  TempDir dir;
  WriteFileText(dir / "a.txt", "caf\xE9");
  FileIOController controller;
  controller.Initialise(Stream({{"filedir", dir.path().string()}, {"filter", "a.txt"}, {"encoding", "iso-8859-1"}}));
  EXPECT_EQ("iso-8859-1", controller.EncodingMethod());
  EXPECT_EQ("caf\xC3\xA9", controller.FetchNextDataSet().ToString());
}

TEST(FileIOController, CheckContentsKeepsOnlyAnEmptyFile) {
  TempDir dir;
  WriteFileText(dir / "empty.csv", "");
  WriteFileText(dir / "full.csv", "same");
  for (const char* name : {"empty.csv", "full.csv"}) {
    FileIOController controller;
    controller.Initialise(Stream({{"filedir", dir.path().string()},
                                  {"filter", name},
                                  {"overwrite", "True"},
                                  {"checkcontents", "True"}}));
    controller.WriteDataSet(Variant("same"), nullptr);
  }
  EXPECT_EQ("", ReadFileText(dir / "empty.csv"));
  EXPECT_EQ("same", ReadFileText(dir / "full.csv"));
  // Without overwrite the check does not run and a unique name is made.
  FileIOController unique;
  unique.Initialise(Stream({{"filedir", dir.path().string()}, {"filter", "empty.csv"}, {"checkcontents", "True"}}));
  unique.WriteDataSet(Variant("new"), nullptr);
  EXPECT_EQ("new", ReadFileText(dir / "empty_1.csv"));
}

}  // namespace
}  // namespace tessel::test
