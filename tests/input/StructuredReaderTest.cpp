// Reading through TransformRead: flat and hierarchical stores built from
// several files, duplicate parents, out-of-order children, and the errors
// that end a read while keeping what was read.
#include <gtest/gtest.h>

#include <chrono>

#include "tests/input/ReadFixture.h"

namespace tessel::test {
namespace {

class ReadTest : public ::testing::Test {
 protected:
  std::string Xml(const std::string& filter, const OptionMap& options, const std::string& records = kFlatRecords) {
    return ReadTransformXml("read1", FileStream(dir_.path().string(), filter), options, records);
  }
  OptionMap Hierarchical(OptionMap extra = {}) {
    extra.emplace("heircarchical", "1");
    extra.emplace("onchangefieldpos", "1");
    return extra;
  }
  void Write(const std::string& name, const std::string& text) { WriteFileText(dir_ / name, text); }

  TempDir dir_;
};

TEST_F(ReadTest, FlatReadOfSeveralFilesWithHeadersAndInputFile) {
  Write("1.csv", "A,B,C\na1,b1,c1\na2, b2 ,\"c,2\"\n\nignored,x,y\n");
  Write("2.csv", "A,B,C\r\na3,b3,c3\r\n");
  std::string records =
      "<RECORD id=\"R\" parentid=\"\" hashcode=\"1\"><FIELD name=\"A\" type=\"3\" position=\"1\"/>"
      "<FIELD name=\"C\" type=\"3\" position=\"3\"/><FIELD name=\"SYS.INPUTFILE\" type=\"3\"/></RECORD>"
      "<RECORD id=\"S\" parentid=\"\" hashcode=\"2\"><FIELD name=\"Z\" type=\"3\" position=\"1\"/></RECORD>";
  ReadRun run(Xml("*.csv", {{"headerlength", "1"}}, records));
  ASSERT_EQ(0, run.error) << run.description;
  EXPECT_EQ((std::vector<std::string>{"a1", "a2", "a3"}), run.Field("/DATA/RECORDS[@id='R']/RECORD", "A"));
  EXPECT_EQ((std::vector<std::string>{"c1", "c,2", "c3"}), run.Field("/DATA/RECORDS[@id='R']/RECORD", "C"));
  std::vector<std::string> files = run.Field("/DATA/RECORDS[@id='R']/RECORD", "SYS.INPUTFILE");
  ASSERT_EQ(3u, files.size());
  EXPECT_EQ((dir_ / "1.csv").string(), files[0]);
  EXPECT_EQ((dir_ / "2.csv").string(), files[2]);
  // Only the first record type takes part in a flat read.
  EXPECT_TRUE(run.Data().GetNodesFromXPath("/DATA/RECORDS[@id='S']").empty());
  EXPECT_EQ(3, run.events.processed);
  EXPECT_EQ(3, run.events.inserted);
}

TEST_F(ReadTest, HierarchicalReadDropsDuplicateParentsAndPlacesChildrenByKey) {
  // Each line preceded by a copy of its header, an out-of-order child of
  // order 1 after order 2, a second file and a blank line that ends it.
  Write("a.csv",
        "type,order,item,qty\n"
        "H,1\nL,1,apple,3\nH,1\nL,1,pear,4\n"
        "H,2\nL,2,plum,1\n"
        "L,1,fig,9\n"
        "L,2,plum,1\n");
  Write("b.csv", "type,order,item,qty\nH,3\nL,3,kiwi,2\n\nH,4\nL,4,lost,1\n");
  ReadRun run(Xml("*.csv", Hierarchical({{"headerlength", "1"}}), kOrderRecords));
  ASSERT_EQ(0, run.error) << run.description;
  EXPECT_EQ((std::vector<std::string>{"1", "2", "3"}), run.Field("/DATA/RECORDS[@id='H']/RECORD", "ORD"));
  EXPECT_EQ((std::vector<std::string>{"apple", "pear", "fig"}),
            run.Field("/DATA/RECORDS[@id='H']/RECORD[FIELD[@name='ORD']/VALUES/VALUE='1']/RECORDS[@id='L']/RECORD",
                      "ITEM"));
  // Identical leaf lines are both kept.
  EXPECT_EQ((std::vector<std::string>{"plum", "plum"}),
            run.Field("/DATA/RECORDS[@id='H']/RECORD[FIELD[@name='ORD']/VALUES/VALUE='2']/RECORDS[@id='L']/RECORD",
                      "ITEM"));
  EXPECT_EQ(1u, run.Data().GetNodesFromXPath("//RECORD[FIELD[@name='ITEM']/VALUES/VALUE='kiwi']").size());
  EXPECT_TRUE(run.Data().GetNodesFromXPath("//RECORD[FIELD[@name='ITEM']/VALUES/VALUE='lost']").empty());
  // The audit counts lines, duplicates included.
  EXPECT_EQ(10, run.events.processed);
  EXPECT_EQ(10, run.events.inserted);
}

TEST_F(ReadTest, KeyOrdinalsDecideKeyOrderAcrossThreeLevels) {
  // The line's keys are ordered by ordinal (2, 1 on fields A, B gives B, A).
  std::string records =
      "<RECORD id=\"H\" parentid=\"\" hashcode=\"1\"><FIELD name=\"T\" type=\"3\" position=\"1\" onchangeval=\"H\"/>"
      "<FIELD name=\"K\" type=\"3\" position=\"2\" key=\"1\"/></RECORD>"
      "<RECORD id=\"M\" parentid=\"H\" hashcode=\"2\"><FIELD name=\"T\" type=\"3\" position=\"1\" onchangeval=\"M\"/>"
      "<FIELD name=\"S\" type=\"3\" position=\"3\" key=\"2\"/><FIELD name=\"K\" type=\"3\" position=\"2\" key=\"1\"/>"
      "</RECORD>"
      "<RECORD id=\"D\" parentid=\"M\" hashcode=\"3\"><FIELD name=\"T\" type=\"3\" position=\"1\" onchangeval=\"D\"/>"
      "<FIELD name=\"K\" type=\"3\" position=\"2\" key=\"1\"/><FIELD name=\"S\" type=\"3\" position=\"3\" key=\"2\"/>"
      "<FIELD name=\"V\" type=\"3\" position=\"4\" key=\"3\"/></RECORD>";
  Write("a.csv", "H,1\nM,1,x\nD,1,x,d1\nM,1,y\nD,1,y,d2\nD,1,x,d3\nH,2\nM,2,x\nD,2,x,d4\nM,1,x\nD,1,x,d5\n");
  ReadRun run(Xml("a.csv", Hierarchical(), records));
  ASSERT_EQ(0, run.error) << run.description;
  XMLWrapper& data = run.Data();
  auto under = [&](const std::string& k, const std::string& s) {
    return Texts(data, "/DATA/RECORDS[@id='H']/RECORD[FIELD[@name='K']/VALUES/VALUE='" + k +
                           "']/RECORDS[@id='M']/RECORD[FIELD[@name='S']/VALUES/VALUE='" + s +
                           "']/RECORDS[@id='D']/RECORD/FIELD[@name='V']/VALUES/VALUE");
  };
  EXPECT_EQ((std::vector<std::string>{"d1", "d3", "d5"}), under("1", "x"));
  EXPECT_EQ((std::vector<std::string>{"d2"}), under("1", "y"));
  EXPECT_EQ((std::vector<std::string>{"d4"}), under("2", "x"));
  EXPECT_EQ(3u, data.GetNodesFromXPath("//RECORDS[@id='M']/RECORD").size());
}

TEST_F(ReadTest, ShortLineEndsTheReadKeepingWhatWasRead) {
  Write("a.csv", "a1,b1,c1\na2,b2\na3,b3,c3\n");
  ReadRun run(Xml("a.csv", {}));
  EXPECT_EQ(9, run.error);
  EXPECT_FALSE(run.failedInCreate);
  EXPECT_NE(std::string::npos,
            run.description.find("Invalid file layout encountered whilst parsing [" + (dir_ / "a.csv").string() +
                                 "]. Expected number of fields is [3], actual number of fields is [2]."))
      << run.description;
  EXPECT_EQ((std::vector<std::string>{"a1"}), run.Field("/DATA/RECORDS[@id='R']/RECORD", "A"));
}

TEST_F(ReadTest, ALineFailsWithWhatFailsFirstInFieldOrder) {
  // B is a number: a lone quote there fails (5) before the missing C (9).
  const std::string records =
      "<RECORD id=\"R\" parentid=\"\" hashcode=\"1\">"
      "<FIELD name=\"A\" type=\"3\" position=\"1\"/><FIELD name=\"B\" type=\"1\" position=\"2\"/>"
      "<FIELD name=\"C\" type=\"3\" position=\"3\"/></RECORD>";
  // `"""` reads as a lone quote (there is no escape for quotes).
  Write("a.csv", "a1,\"12\",c1\na2,\"\"\"\na3,7,c3\n");
  ReadRun run(Xml("a.csv", {}, records));
  EXPECT_EQ(5, run.error) << run.description;
  // The line before is read, its quotes dropped as for any number.
  EXPECT_EQ((std::vector<std::string>{"a1"}), run.Field("/DATA/RECORDS[@id='R']/RECORD", "A"));
  EXPECT_EQ((std::vector<std::string>{"12"}), run.Field("/DATA/RECORDS[@id='R']/RECORD", "B"));
}

TEST_F(ReadTest, MissingDirectoryFailsWhileCreating) {
  ReadRun run(ReadTransformXml("read1", FileStream((dir_ / "absent").string(), "*.csv"), {}, kFlatRecords));
  EXPECT_EQ(8501, run.error);
  EXPECT_TRUE(run.failedInCreate);
}

TEST_F(ReadTest, BadOnChangePositionAndKeysAreNumbered) {
  Write("a.csv", "H,1\nL,1,x,1\n");
  for (const char* position : {"0", "abc", "-3"}) {
    ReadRun run(Xml("a.csv", Hierarchical({{"onchangefieldpos", position}}), kOrderRecords));
    EXPECT_EQ(8240, run.error) << position;
    EXPECT_NE(std::string::npos, run.description.find("The [" + std::string(position) +
                                                       "] attribute on transform [read1] is invalid."));
  }
  // Past the number of fields: the subscript error of the reader.
  EXPECT_EQ(9, ReadRun(Xml("a.csv", Hierarchical({{"onchangefieldpos", "9"}}), kOrderRecords)).error);

  std::string nonNumeric = kOrderRecords;
  nonNumeric.replace(nonNumeric.find("key=\"2\""), 7, "key=\"b\"");
  ReadRun bad(Xml("a.csv", Hierarchical(), nonNumeric));
  EXPECT_EQ(8220, bad.error);
  EXPECT_NE(std::string::npos, bad.description.find("The Key Id [b] on Record [L] for Transform [read1] is non-numeric."));

  std::string outOfRange = kOrderRecords;
  outOfRange.replace(outOfRange.find("key=\"2\""), 7, "key=\"5\"");
  EXPECT_EQ(8221, ReadRun(Xml("a.csv", Hierarchical(), outOfRange)).error);

  std::string tooFew = kOrderRecords;
  tooFew.replace(tooFew.find("key=\"2\""), 7, "");
  ReadRun few(Xml("a.csv", Hierarchical(), tooFew));
  EXPECT_EQ(8222, few.error);
  EXPECT_NE(std::string::npos, few.description.find("The minimum keys is [2]"));
}

TEST_F(ReadTest, UnknownRecordTypeEndsTheRead) {
  Write("a.csv", "H,1\nL,1,x,1\nX,1\nH,2\n");
  ReadRun run(Xml("a.csv", Hierarchical(), kOrderRecords));
  EXPECT_EQ(91, run.error);
  EXPECT_NE(std::string::npos, run.description.find("[X]")) << run.description;
  EXPECT_EQ(1u, run.Data().GetNodesFromXPath("//RECORDS[@id='L']/RECORD").size());
  EXPECT_EQ(1u, run.Data().GetNodesFromXPath("//RECORDS[@id='H']/RECORD").size());
}

TEST_F(ReadTest, BadFieldPositionsFail) {
  Write("a.csv", "1,2,3\n");
  std::string missing = kFlatRecords;
  missing.replace(missing.find(" position=\"2\""), 13, "");
  EXPECT_EQ(7701, ReadRun(Xml("a.csv", {}, missing)).error);
  std::string text = kFlatRecords;
  text.replace(text.find("position=\"2\""), 12, "position=\"x\"");
  EXPECT_EQ(13, ReadRun(Xml("a.csv", {}, text)).error);
}

TEST_F(ReadTest, ChildWithoutParentInTheDocumentFails) {
  Write("a.csv", "H,1\nL,7,x,1\n");
  ReadRun run(Xml("a.csv", Hierarchical(), kOrderRecords));
  EXPECT_EQ(7703, run.error);
}

TEST_F(ReadTest, ReaderAndControllerTables) {
  Write("a.csv", "1,2,3\n");
  for (const char* type : {"2", "3", "6", "7", "8"}) {
    ReadRun run(Xml("a.csv", {{"readtype", type}}));
    EXPECT_EQ(10503, run.error) << type;
  }
  ReadRun custom(Xml("a.csv", {{"readtype", "10"}, {"assembly", "Acme.Reader"}}));
  EXPECT_EQ(10503, custom.error);
  EXPECT_NE(std::string::npos, custom.description.find("[10-Acme.Reader]"));
  for (const char* type : {"4", "5", "9", "0"}) {
    ReadRun run(Xml("a.csv", {{"readtype", type}}));
    EXPECT_NE(std::string::npos, run.description.find("Reader Type [" + std::string(type) + "] is invalid."))
        << run.description;
  }
  ReadRun db(ReadTransformXml("read1", FileStream(dir_.path().string(), "a.csv", 2), {}, kFlatRecords));
  EXPECT_EQ(10503, db.error);
  ReadRun three(ReadTransformXml("read1", FileStream(dir_.path().string(), "a.csv", 3), {}, kFlatRecords));
  EXPECT_EQ(91, three.error);
  ReadRun noStream(ReadTransformXml("read1", "", {}, kFlatRecords));
  EXPECT_NE(0, noStream.error);
}

TEST_F(ReadTest, EmptySourceAndOtherModesAddNothing) {
  Write("a.csv", "");
  ReadRun empty(Xml("a.csv", {}));
  EXPECT_EQ(0, empty.error);
  EXPECT_TRUE(empty.Data().GetNodesFromXPath("//RECORD").empty());
  Write("b.csv", "1,2,3\n");
  ReadRun other(Xml("b.csv", {{"heircarchical", "7"}}));
  EXPECT_EQ(0, other.error);
  EXPECT_TRUE(other.Data().GetNodesFromXPath("//RECORD").empty());
}

TEST_F(ReadTest, TestModeStopsAtFourHundredRecords) {
  std::string body;
  for (int i = 0; i < 300; ++i) body += "a" + std::to_string(i) + ",b,c\n";
  Write("1.csv", body);
  Write("2.csv", body);
  ReadRun run(Xml("*.csv", {}), true);
  ASSERT_EQ(0, run.error);
  EXPECT_EQ(400u, run.Data().GetNodesFromXPath("//RECORD").size());
  EXPECT_EQ(400, run.events.processed);
}

}  // namespace
}  // namespace tessel::test
