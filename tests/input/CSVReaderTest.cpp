// The CSV reader over real files: field parsing, line breaks, header lines,
// blank lines, several files and the test-run limit.
#include <gtest/gtest.h>

#include "input/CSVReader.h"
#include "input/FileIOController.h"
#include "tests/input/ReadFixture.h"

namespace tessel::test {
namespace {

std::vector<std::string> Parse(const std::string& line, const std::string& delimiter = ",") {
  std::vector<std::string_view> values;
  size_t count = CSVReader::ParseString(line, delimiter, values);
  return std::vector<std::string>(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(count));
}

using V = std::vector<std::string>;

TEST(CSVParse, SpacesAndEmptyValues) {
  EXPECT_EQ((V{"a", "", "b"}), Parse("a,,b"));
  EXPECT_EQ((V{"a b", "c"}), Parse("  a b  ,c"));
  EXPECT_EQ((V{"a", ""}), Parse("a,"));
  EXPECT_EQ((V{""}), Parse(""));
  EXPECT_EQ((V{"", ""}), Parse(","));
}

TEST(CSVParse, QuotesHaveNoEscape) {
  EXPECT_EQ((V{"a,b", "c"}), Parse("\"a,b\", c"));
  EXPECT_EQ((V{"ab\"\"cd\""}), Parse("\"ab\"\"cd\""));
  EXPECT_EQ((V{"abc\"def"}), Parse("abc\"def"));
  // Spaces inside quotes stay, those after the closing quote go.
  EXPECT_EQ((V{" x ", "y"}), Parse("\" x \"  ,y"));
  // An unterminated quote runs to the end of the line, delimiters included.
  EXPECT_EQ((V{"a", "b,c"}), Parse("a,\"b,c"));
  // After a doubled quote a delimiter ends the field.
  EXPECT_EQ((V{"a\"\"", "b"}), Parse("\"a\"\"\",b"));
}

TEST(CSVParse, OtherDelimiters) {
  EXPECT_EQ((V{"a", "b"}), Parse("a\tb", "\t"));
  EXPECT_EQ((V{"a;b", "c"}), Parse("a;b|c", "|"));
  EXPECT_EQ((V{"a,b"}), Parse("a,b", ""));
  EXPECT_EQ((V{"x", "y"}), Parse("x\xC2\xA7y", "\xC2\xA7"));
}

TEST(CSVParse, GrowsPastSixtyFourValues) {
  std::string line;
  for (int i = 0; i < 150; ++i) line += std::to_string(i) + ",";
  V values = Parse(line);
  ASSERT_EQ(151u, values.size());
  EXPECT_EQ("149", values[149]);
  EXPECT_EQ("", values[150]);
}

class CSVFiles : public ::testing::Test {
 protected:
  // Reads every record of the files matching `filter` with the reader alone.
  std::vector<V> ReadAll(const std::string& filter, const OptionMap& options = {}, bool testMode = false) {
    auto definition =
        DefinitionFrom(ReadTransformXml("T", FileStream(dir_.path().string(), filter), options, kFlatRecords));
    auto controller = std::make_shared<FileIOController>();
    controller->Initialise(definition->TransformDefinitionXWrapper()->CopyNodeIntoNewWrapper("/TRANSFORM/INPUTSTREAM"));
    CSVReader reader;
    reader.InitClass(definition, controller, testMode);
    std::vector<V> records;
    while (!reader.EOF_()) {
      records.push_back(reader.CurrentValues());
      if (records.size() > 100000) break;
      if (!reader.EOF_()) reader.MoveNext();
    }
    return records;
  }
  void Write(const std::string& name, const std::string& text) { WriteFileText(dir_ / name, text); }

  TempDir dir_;
};

TEST_F(CSVFiles, HeaderSkippedInEachFileAndFilesInNameOrder) {
  Write("b.csv", "h1\nh2\n3,x\n4,y\n");
  Write("a.csv", "h1\nh2\n1,x\n2,y\n");
  Write("c.csv", "h1\nh2\n5,z");
  Write("other.txt", "9,9\n");
  std::vector<V> records = ReadAll("*.csv", {{"headerlength", "2"}});
  ASSERT_EQ(5u, records.size());
  EXPECT_EQ((V{"1", "x"}), records[0]);
  EXPECT_EQ((V{"4", "y"}), records[3]);
  EXPECT_EQ((V{"5", "z"}), records[4]);
}

TEST_F(CSVFiles, BlankLineEndsItsFileOnly) {
  Write("a.csv", "1\n2\n\n3\n");
  Write("b.csv", "4\r\n\r\n5\r\n");
  std::vector<V> records = ReadAll("*.csv");
  ASSERT_EQ(3u, records.size());
  EXPECT_EQ((V{"2"}), records[1]);
  EXPECT_EQ((V{"4"}), records[2]);
}

TEST_F(CSVFiles, LineDelimiterIsDecidedOncePerFile) {
  // CR LF anywhere: a lone LF stays inside its line.
  Write("a.csv", "1,a\nb\r\n2,c\r\n");
  // Only CRs.
  Write("b.csv", "3,d\r4,e\r");
  // No line break at all: one record.
  Write("c.csv", "5,f");
  std::vector<V> records = ReadAll("*.csv");
  ASSERT_EQ(5u, records.size());
  EXPECT_EQ((V{"1", "a\nb"}), records[0]);
  EXPECT_EQ((V{"4", "e"}), records[3]);
  EXPECT_EQ((V{"5", "f"}), records[4]);
}

TEST_F(CSVFiles, QuotedLineBreakEndsTheRecord) {
  Write("a.csv", "1,\"x\ny\",2\n");
  std::vector<V> records = ReadAll("a.csv");
  ASSERT_EQ(2u, records.size());
  EXPECT_EQ((V{"1", "x"}), records[0]);
  EXPECT_EQ((V{"y\"", "2"}), records[1]);
}

TEST_F(CSVFiles, HeaderOnlyAndEmptyFilesAreSteppedOver) {
  Write("a.csv", "header\n");
  Write("b.csv", "header\n7,q\n");
  std::vector<V> records = ReadAll("*.csv", {{"headerlength", "1"}});
  ASSERT_EQ(1u, records.size());
  EXPECT_EQ((V{"7", "q"}), records[0]);
  EXPECT_TRUE(ReadAll("none*.csv").empty());
  Write("empty.dat", "");
  EXPECT_TRUE(ReadAll("empty.dat").empty());
}

TEST_F(CSVFiles, EmptyFileAfterAFullOneReplaysTheLastValues) {
  Write("a.csv", "1\n2\n");
  Write("b.csv", "");
  std::vector<V> records = ReadAll("*.csv");
  // a.csv gives 1 and 2; the empty b.csv walks a.csv's lines again with the
  // values last parsed.
  ASSERT_EQ(4u, records.size());
  EXPECT_EQ((V{"2"}), records[2]);
  EXPECT_EQ((V{"2"}), records[3]);
}

TEST_F(CSVFiles, EmptyFileAfterAHeaderOnlyOneReplaysTheValuesOfTheFileBefore) {
  // b.csv has no record but replaces the text; the empty c.csv walks b.csv's
  // one line with a.csv's last values.
  Write("a.csv", "h\n1\n2\n");
  Write("b.csv", "h\n");
  Write("c.csv", "");
  std::vector<V> records = ReadAll("*.csv", {{"headerlength", "1"}});
  ASSERT_EQ(3u, records.size());
  EXPECT_EQ((V{"2"}), records[1]);
  EXPECT_EQ((V{"2"}), records[2]);
}

TEST_F(CSVFiles, TestRunsStopAtFourHundredAcrossFiles) {
  std::string body;
  for (int i = 0; i < 300; ++i) body += std::to_string(i) + "\n";
  Write("a.csv", body);
  Write("b.csv", body);
  Write("c.csv", body);
  EXPECT_EQ(400u, ReadAll("*.csv", {}, true).size());
  EXPECT_EQ(900u, ReadAll("*.csv", {}, false).size());
}

TEST_F(CSVFiles, ItemAndFieldByPosition) {
  Write("a.csv", "x,y\n");
  auto definition = DefinitionFrom(ReadTransformXml("T", FileStream(dir_.path().string(), "a.csv"), {}, kFlatRecords));
  auto controller = std::make_shared<FileIOController>();
  controller->Initialise(definition->TransformDefinitionXWrapper()->CopyNodeIntoNewWrapper("/TRANSFORM/INPUTSTREAM"));
  CSVReader reader;
  reader.InitClass(definition, controller, false);
  std::vector<xmlNodePtr> fields =
      definition->TransformDefinitionXWrapper()->GetNodesFromXPath("//RECORD[@id='R']/FIELD");
  EXPECT_EQ("y", reader.Item(fields[1]).ToString());
  EXPECT_EQ("x", reader.FieldByPosition(0).ToString());
  std::string_view text;
  ASSERT_TRUE(reader.ItemText(fields[1], text));
  EXPECT_EQ("y", text);
  try {
    reader.Item(fields[2]);
    FAIL() << "a third field should not exist";
  } catch (const Error& e) {
    EXPECT_EQ(9, e.number());
  }
  try {
    reader.ItemText(fields[2], text);
    FAIL() << "a third field should not exist as text either";
  } catch (const Error& e) {
    EXPECT_EQ(9, e.number());
  }
  try {
    reader.FieldByPosition(-1);
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(9, e.number());
  }
  EXPECT_EQ((dir_ / "a.csv").string(), reader.Source());
}

TEST_F(CSVFiles, MissingOptionsAndDirectoriesFail) {
  Write("a.csv", "1\n");
  try {
    ReadAll("a.csv", {{"delimiter", "<absent>"}});
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(7703, e.number());
  }
  auto definition =
      DefinitionFrom(ReadTransformXml("T", FileStream((dir_ / "nowhere").string(), "*.csv"), {}, kFlatRecords));
  auto controller = std::make_shared<FileIOController>();
  try {
    controller->Initialise(
        definition->TransformDefinitionXWrapper()->CopyNodeIntoNewWrapper("/TRANSFORM/INPUTSTREAM"));
    FAIL();
  } catch (const Error& e) {
    EXPECT_EQ(8501, e.number());
    EXPECT_NE(std::string::npos, e.description().find("Path does not exist ["));
  }
}

}  // namespace
}  // namespace tessel::test
