// The write transform with the CSV writer and the file controller, on data
// documents built through the store, writing real files into a temp folder.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "audit/AuditLogger.h"
#include "core/Error.h"
#include "job/TransformDefinition.h"
#include "output/CSVWriter.h"
#include "output/TransformWrite.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "tests/store/StoreFixture.h"
#include "tests/support/TempDir.h"

namespace tessel::test {
namespace {

namespace fs = std::filesystem;

using OptionMap = std::map<std::string, std::string>;

std::string OptionsXml(const OptionMap& options) {
  std::string xml = "<OPTIONS>";
  for (const auto& [name, value] : options) xml += "<OPTION name=\"" + name + "\" value=\"" + value + "\"/>";
  return xml + "</OPTIONS>";
}

// ORDER (NUMBER string, QTY long, SECRET not exported, NOTES multi-valued)
// with LINE children (ITEM string, PRICE decimal), and a record type that
// exports nothing.
const char* kRecords =
    "<RECORD id=\"ORDER\" parentid=\"\" hashcode=\"1\">"
    "<FIELD name=\"NUMBER\" type=\"3\" export=\"True\"/>"
    "<FIELD name=\"QTY\" type=\"1\" export=\"True\"/>"
    "<FIELD name=\"SECRET\" type=\"3\" export=\"False\"/>"
    "<FIELD name=\"NOTES\" type=\"3\" export=\"False\" allowmultiplevals=\"True\"/>"
    "</RECORD>"
    "<RECORD id=\"LINE\" parentid=\"ORDER\" hashcode=\"2\">"
    "<FIELD name=\"ITEM\" type=\"3\" export=\"True\"/>"
    "<FIELD name=\"PRICE\" type=\"2\" export=\"True\"/>"
    "</RECORD>"
    "<RECORD id=\"TAG\" parentid=\"LINE\" hashcode=\"3\">"
    "<FIELD name=\"LABEL\" type=\"3\" export=\"False\"/>"
    "</RECORD>";

class TransformWriteTest : public ::testing::Test {
 protected:
  TransformWriteTest() {
    options_ = {{"writetype", "1"},      {"committran", ""},   {"delimiter", ","},
                {"quotestrings", "True"}, {"newline", "3"},     {"writeheaders", "True"}};
    stream_ = {{"filedir", dir_.path().string()}, {"filter", "orders.csv"}, {"overwrite", "True"}};
  }

  std::string DefinitionXml() const {
    return "<TRANSFORM id=\"W1\" parentid=\"\" type=\"2\">" + OptionsXml(options_) + "<INPUTSTREAM type=\"" +
           streamType_ + "\">" + OptionsXml(stream_) + "</INPUTSTREAM><TRANSFORMDETAIL><RECORDS>" + records_ +
           "</RECORDS></TRANSFORMDETAIL></TRANSFORM>";
  }

  // A factory over the current options; the data is added by the test.
  std::shared_ptr<TransactionFactory>& Factory() {
    if (!factory_) factory_ = MakeFactory(DefinitionXml());
    return factory_;
  }

  Ref<Transaction> Order(const std::string& number, int32_t qty) {
    auto context = TopContext(*Factory());
    Ref<Transaction> order = Factory()->CreateTransaction("ORDER");
    order->SetFieldValue("NUMBER", Variant(number));
    order->SetFieldValue("QTY", Variant(qty));
    Factory()->AddTransaction(*order, *context);
    return order;
  }

  Ref<Transaction> Line(Transaction& order, const std::string& item, const std::string& price) {
    Ref<TransactionContext> context = order.Context();
    Ref<Transaction> line = Factory()->CreateTransaction("LINE");
    line->SetFieldValue("ITEM", Variant(item));
    line->SetFieldValue("PRICE", Variant(price));
    Factory()->AddTransaction(*line, *context);
    return line;
  }

  // Builds and runs a TransformWrite over the factory.
  void Write() {
    TransformWrite write;
    write.CreateController(nullptr, logger_, Factory(), false);
    write.Process();
  }

  Error WriteError() {
    return CatchError([&] { Write(); });
  }

  std::string File(const std::string& name) const {
    std::ifstream in(dir_ / name, std::ios::binary);
    EXPECT_TRUE(in.good()) << name;
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }

  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir_.path())) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

  TempDir dir_;
  OptionMap options_;
  OptionMap stream_;
  std::string streamType_ = "1";
  std::string records_ = kRecords;
  std::shared_ptr<TransactionFactory> factory_;
  AuditLogger logger_;
};

TEST_F(TransformWriteTest, WholeRunIsOneFileWithHeadersFirstAndParentsBeforeChildren) {
  Ref<Transaction> first = Order("1", 5);
  first->SetFieldValue("SECRET", Variant("hidden"));
  Line(*first, "a", "1.5");
  Line(*first, "b", "2");
  Order("2", 7);
  Write();

  EXPECT_EQ(std::vector<std::string>{"orders.csv"}, Files());
  EXPECT_EQ("NUMBER,QTY\nITEM,PRICE\n\"1\",5\n\"a\",1.5\n\"b\",2\n\"2\",7\n", File("orders.csv"));
  EXPECT_EQ(2, logger_.GetEventCount("W1", "ORDER", "PROCESSED"));
  EXPECT_EQ(2, logger_.GetEventCount("W1", "LINE", "PROCESSED"));
  // Writing inserts nothing into the data document.
  EXPECT_EQ(0, logger_.GetEventCount("W1", "ORDER", "INSERTED"));
}

TEST_F(TransformWriteTest, ValuesAreWrittenAsTheyAreWithoutEscaping) {
  options_["delimiter"] = "||";
  options_["newline"] = "1";
  Order("ab\"cd", 3);
  Order("x,y||z", 4);
  Write();
  // Quotes are not doubled; a delimiter inside a quoted value is not escaped;
  // a numeric field is never quoted.
  EXPECT_EQ("NUMBER||QTY\r\nITEM||PRICE\r\n\"ab\"cd\"||3\r\n\"x,y||z\"||4\r\n", File("orders.csv"));
}

TEST_F(TransformWriteTest, WithoutQuotesAndHeadersOnlyValuesAreWritten) {
  options_["quotestrings"] = "False";
  options_["writeheaders"] = "False";
  options_["newline"] = "2";
  Ref<Transaction> order = Order("a,b", 1);
  Line(*order, "", "0.25");
  Write();
  EXPECT_EQ("a,b,1\r,0.25\r", File("orders.csv"));
}

TEST_F(TransformWriteTest, EveryLineDelimiterCode) {
  const std::pair<const char*, const char*> codes[] = {
      {"1", "\r\n"}, {"2", "\r"}, {"3", "\n"}, {"4", "\xC2\x85"}, {"5", "\f"}, {"6", "\xE2\x80\xA9"},
      {"7", "\xE2\x80\xA8"}, {" 3 ", "\n"}, {"3.0", "\n"}};
  for (const auto& [code, delimiter] : codes) EXPECT_EQ(delimiter, CSVWriter::GetLineDelimiter(code)) << code;
  for (const char* bad : {"0", "8", "1.5", "x", "", "-1", "0x3", "inf"}) {
    Error error = CatchError([&] { CSVWriter::GetLineDelimiter(bad); });
    EXPECT_EQ(9001, error.number()) << bad;
    EXPECT_NE(std::string::npos, error.description().find("Line Delimiter Option [" + std::string(bad) + "] is invalid."))
        << error.description();
  }
}

TEST_F(TransformWriteTest, BadNewlineFailsBeforeAnythingIsWritten) {
  options_["newline"] = "CRLF";
  Order("1", 1);
  EXPECT_EQ(9001, WriteError().number());
  EXPECT_TRUE(Files().empty());
}

TEST_F(TransformWriteTest, CommitOnTopRecordWritesOneFileEachWithTheHeader) {
  options_["committran"] = "ORDER";
  stream_["overwrite"] = "False";
  Ref<Transaction> first = Order("1", 5);
  Line(*first, "a", "1");
  Order("2", 6);
  Ref<Transaction> third = Order("3", 7);
  Line(*third, "c", "3");
  Write();

  EXPECT_EQ((std::vector<std::string>{"orders.csv", "orders_1.csv", "orders_2.csv"}), Files());
  const std::string header = "NUMBER,QTY\nITEM,PRICE\n";
  EXPECT_EQ(header + "\"1\",5\n\"a\",1\n", File("orders.csv"));
  EXPECT_EQ(header + "\"2\",6\n", File("orders_1.csv"));
  EXPECT_EQ(header + "\"3\",7\n\"c\",3\n", File("orders_2.csv"));
  EXPECT_EQ(3, logger_.GetEventCount("W1", "ORDER", "PROCESSED"));
}

TEST_F(TransformWriteTest, CommitWithOverwriteLeavesTheLastUnit) {
  options_["committran"] = "ORDER";
  Order("1", 5);
  Order("2", 6);
  Write();
  EXPECT_EQ(std::vector<std::string>{"orders.csv"}, Files());
  EXPECT_EQ("NUMBER,QTY\nITEM,PRICE\n\"2\",6\n", File("orders.csv"));
}

TEST_F(TransformWriteTest, NoTransactionsWritesNothingUnlessFileNoTran) {
  Write();
  EXPECT_TRUE(Files().empty());

  options_["filenotran"] = "True";
  factory_.reset();
  Write();
  EXPECT_EQ("NUMBER,QTY\nITEM,PRICE\n", File("orders.csv"));

  // Without headers the empty unit is an empty file.
  options_["writeheaders"] = "False";
  factory_.reset();
  fs::remove(dir_ / "orders.csv");
  Write();
  EXPECT_EQ(std::vector<std::string>{"orders.csv"}, Files());
  EXPECT_EQ("", File("orders.csv"));
}

TEST_F(TransformWriteTest, FileNoTranWithCommitRecordProducesNoUnit) {
  options_["filenotran"] = "True";
  options_["committran"] = "ORDER";
  Write();
  EXPECT_TRUE(Files().empty());
}

TEST_F(TransformWriteTest, RecordTypesWithoutExportedFieldsWriteNoLineAndNoHeader) {
  records_ =
      "<RECORD id=\"ORDER\" parentid=\"\" hashcode=\"1\"><FIELD name=\"NUMBER\" type=\"3\" export=\"False\"/></RECORD>"
      "<RECORD id=\"LINE\" parentid=\"ORDER\" hashcode=\"2\"><FIELD name=\"ITEM\" type=\"3\" export=\"True\"/>"
      "</RECORD>";
  auto context = TopContext(*Factory());
  Ref<Transaction> order = Factory()->CreateTransaction("ORDER");
  order->SetFieldValue("NUMBER", Variant("1"));
  Factory()->AddTransaction(*order, *context);
  Ref<TransactionContext> lines = order->Context();
  Ref<Transaction> line = Factory()->CreateTransaction("LINE");
  line->SetFieldValue("ITEM", Variant("i"));
  Factory()->AddTransaction(*line, *lines);
  Write();
  EXPECT_EQ("ITEM\n\"i\"\n", File("orders.csv"));
  EXPECT_EQ(1, logger_.GetEventCount("W1", "ORDER", "PROCESSED"));
}

TEST_F(TransformWriteTest, CharacterSetAndPreamble) {
  stream_["encoding"] = "utf-16";
  stream_["writebom"] = "True";
  options_["writeheaders"] = "False";
  options_["quotestrings"] = "False";
  Order("\xC3\xA9", 1);  // é
  Write();
  EXPECT_EQ(std::string("\xFF\xFE\xE9\x00,\x00" "1\x00\n\x00", 10), File("orders.csv"));

  stream_["encoding"] = "windows-1252";
  stream_.erase("writebom");
  factory_.reset();
  Order("\xC3\xA9", 2);
  Write();
  EXPECT_EQ("\xE9,2\n", File("orders.csv"));
}

TEST_F(TransformWriteTest, CommitBelowTheTopRecordAsksForTheTopRecord) {
  options_["committran"] = "LINE";
  stream_["overwrite"] = "False";
  Ref<Transaction> order = Order("1", 5);
  Line(*order, "a", "1");
  Line(*order, "b", "2");
  Error error = WriteError();
  EXPECT_EQ(9002, error.number());
  EXPECT_NE(std::string::npos, error.description().find("top record [ORDER]")) << error.description();
  EXPECT_NE(std::string::npos, error.description().find("Error whilst processing [LINE] record [2]."))
      << error.description();
  // The first unit was committed before the failure and stays.
  EXPECT_EQ(std::vector<std::string>{"orders.csv"}, Files());
  EXPECT_EQ("NUMBER,QTY\nITEM,PRICE\n\"1\",5\n\"a\",1\n", File("orders.csv"));
}

TEST_F(TransformWriteTest, CommitBelowTopWorksWhileEachParentHasOneCommitRecord) {
  options_["committran"] = "LINE";
  stream_["overwrite"] = "False";
  Ref<Transaction> first = Order("1", 5);
  Line(*first, "a", "1");
  Ref<Transaction> second = Order("2", 6);
  Line(*second, "b", "2");
  Write();
  EXPECT_EQ((std::vector<std::string>{"orders.csv", "orders_1.csv"}), Files());
  EXPECT_EQ("NUMBER,QTY\nITEM,PRICE\n\"1\",5\n\"a\",1\n", File("orders.csv"));
  // The second parent is written at the start of the second unit.
  EXPECT_EQ("NUMBER,QTY\nITEM,PRICE\n\"2\",6\n\"b\",2\n", File("orders_1.csv"));
}

TEST_F(TransformWriteTest, CommitRecordOffTheLineOfFirstChildrenIsRefused) {
  for (const char* commit : {"NOPE", "TAG2"}) {
    records_ = std::string(kRecords) +
               "<RECORD id=\"TAG2\" parentid=\"LINE\" hashcode=\"4\"><FIELD name=\"X\" type=\"3\"/></RECORD>";
    options_["committran"] = commit;
    factory_.reset();
    Error error = WriteError();
    EXPECT_EQ(9004, error.number()) << commit;
    EXPECT_NE(std::string::npos, error.description().find("Commit record [" + std::string(commit) + "]"))
        << error.description();
  }
}

TEST_F(TransformWriteTest, WriterAndControllerTypesThatDoNotExist) {
  options_["writetype"] = "5";
  Error notBuilt = WriteError();
  EXPECT_EQ(10503, notBuilt.number());
  EXPECT_NE(std::string::npos, notBuilt.description().find("FixedLengthWriter")) << notBuilt.description();

  options_["writetype"] = "3";
  factory_.reset();
  EXPECT_EQ(91, WriteError().number());

  options_["writetype"] = "1";
  streamType_ = "2";
  factory_.reset();
  EXPECT_EQ(10503, WriteError().number());
  streamType_ = "3";
  factory_.reset();
  EXPECT_EQ(91, WriteError().number());
}

TEST_F(TransformWriteTest, FieldFailureNamesTheRecordAndKeepsNoFile) {
  records_ =
      "<RECORD id=\"ORDER\" parentid=\"\" hashcode=\"1\">"
      "<FIELD name=\"NUMBER\" type=\"3\" export=\"True\"/>"
      "<FIELD name=\"NOTES\" type=\"3\" export=\"True\" allowmultiplevals=\"True\"/></RECORD>";
  auto context = TopContext(*Factory());
  for (const char* number : {"1", "2"}) {
    Ref<Transaction> order = Factory()->CreateTransaction("ORDER");
    order->SetFieldValue("NUMBER", Variant(number));
    order->SetFieldValue("NOTES", Variant("n1"));
    if (std::string(number) == "2") order->SetFieldValue("NOTES", Variant("n2"));
    Factory()->AddTransaction(*order, *context);
  }
  Error error = WriteError();
  // Two values make an array, which has no text.
  EXPECT_EQ(13, error.number());
  EXPECT_NE(std::string::npos, error.description().find("Error whilst processing [ORDER] record [2]."))
      << error.description();
  EXPECT_TRUE(Files().empty());
}

TEST_F(TransformWriteTest, ChildRecordTypesFollowTheDefinitionOrder) {
  records_ = std::string(kRecords) +
             "<RECORD id=\"NOTE\" parentid=\"ORDER\" hashcode=\"5\"><FIELD name=\"TEXT\" type=\"3\" export=\"True\"/>"
             "</RECORD>";
  options_["quotestrings"] = "False";
  Ref<Transaction> order = Order("1", 5);
  // The note goes into the document before the lines.
  Ref<TransactionContext> context = order->Context();
  Ref<Transaction> note = Factory()->CreateTransaction("NOTE");
  note->SetFieldValue("TEXT", Variant("remember"));
  Factory()->AddTransaction(*note, *context);
  Line(*order, "a", "1");
  Line(*order, "b", "2");
  Order("2", 6);
  Write();
  EXPECT_EQ("NUMBER,QTY\nITEM,PRICE\nTEXT\n1,5\na,1\nb,2\nremember\n2,6\n", File("orders.csv"));
}

TEST_F(TransformWriteTest, ManyRecordsStayInOrder) {
  options_["writeheaders"] = "False";
  options_["quotestrings"] = "False";
  std::string expected;
  for (int i = 0; i < 2500; ++i) {
    Order(std::to_string(i), i);
    expected += std::to_string(i) + "," + std::to_string(i) + "\n";
  }
  Write();
  EXPECT_EQ(expected, File("orders.csv"));
}

// The unit's buffer is sized from its first lines; lines that grow longer
// later, and child lines beyond the count of top records, still all arrive.
TEST_F(TransformWriteTest, LinesLongerThanTheFirstOnesAndChildLinesAllArrive) {
  options_["writeheaders"] = "False";
  options_["quotestrings"] = "False";
  std::string expected;
  for (int i = 0; i < 1200; ++i) {
    const std::string number = i < 400 ? std::to_string(i) : std::string(static_cast<size_t>(i % 97) * 11, 'n');
    Ref<Transaction> order = Order(number, i);
    expected += number + "," + std::to_string(i) + "\n";
    if (i % 3 == 0) {
      Line(*order, "item" + std::to_string(i), std::to_string(i));
      expected += "item" + std::to_string(i) + "," + std::to_string(i) + "\n";
    }
  }
  Write();
  EXPECT_EQ(expected, File("orders.csv"));
}

}  // namespace
}  // namespace tessel::test
