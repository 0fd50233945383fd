// The function library as formulas see it: an engine publishes one Functions
// object as objFunctions with its members as bare names, over records of a
// real data document (orders with lines, lines with details).
#include "scripting/Functions.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "core/DateTime.h"
#include "core/Error.h"
#include "job/AppConfig.h"
#include "job/TesselSession.h"
#include "job/TransformDefinition.h"
#include "scripting/vbs/Dictionary.h"
#include "scripting/vbs/Engine.h"
#include "services/PasswordCipher.h"
#include "store/Transaction.h"
#include "store/TransactionContext.h"
#include "store/TransactionFactory.h"
#include "store/XMLWrapper.h"
#include "tests/support/JobEnvironment.h"
#include "tests/support/TempDir.h"

namespace tessel {
namespace {

const char* kDefinition =
    "<TRANSFORM id=\"T1\" parentid=\"\" type=\"1\"><OPTIONS/><TRANSFORMDETAIL><RECORDS>"
    "<RECORD id=\"ORDER\" parentid=\"\" hashcode=\"1\">"
    "<FIELD name=\"NUMBER\" type=\"3\"/>"
    "<FIELD name=\"NOTE\" type=\"3\"/>"
    "<FIELD name=\"CODES\" type=\"3\" allowmultiplevals=\"True\"/>"
    "<FIELD name=\"AMOUNTS\" type=\"2\" allowmultiplevals=\"True\"/>"
    "<FIELD name=\"TAGS\" type=\"1\" allowmultiplevals=\"True\"/>"
    "<FIELD name=\"BLOB\" type=\"5\"/>"
    "</RECORD>"
    "<RECORD id=\"LINE\" parentid=\"ORDER\" hashcode=\"2\">"
    "<FIELD name=\"ITEM\" type=\"3\"/>"
    "<FIELD name=\"QTY\" type=\"1\"/>"
    "<FIELD name=\"PRICE\" type=\"2\"/>"
    "<FIELD name=\"CODE\" type=\"3\"/>"
    "<FIELD name=\"SHIPPED\" type=\"4\"/>"
    "<FIELD name=\"MULTI\" type=\"1\" allowmultiplevals=\"True\"/>"
    "<FIELD name=\"BLOB\" type=\"5\"/>"
    "<FIELD name=\"PUSHED\" type=\"3\"/>"
    "<FIELD name=\"DONE\" type=\"0\"/>"
    "</RECORD>"
    "<RECORD id=\"DETAIL\" parentid=\"LINE\" hashcode=\"3\">"
    "<FIELD name=\"TEXT\" type=\"3\"/>"
    "</RECORD>"
    "</RECORDS></TRANSFORMDETAIL></TRANSFORM>";

// Two orders: "1" with lines a/2/1.5, b/3/2.25 and a/5/0.5 (codes "x", none,
// "y"; the first line has a detail), "2" with one line z/7.
class FunctionsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto wrapper = MakeRef<XMLWrapper>();
    wrapper->LoadXML(kDefinition);
    factory_ = std::make_shared<TransactionFactory>();
    factory_->SetTransformDefinition(std::make_shared<TransformDefinition>(wrapper));
    Ref<TransactionContext> top = factory_->Data()->CreateContext();
    factory_->SetContextToTopDataNode(*top);

    order1_ = Add("ORDER", *top, {{"NUMBER", "1"}});
    lines_[0] = Add("LINE", *order1_->Context(), {{"ITEM", "a"}, {"QTY", "2"}, {"PRICE", "1.5"}, {"CODE", "x"}});
    lines_[1] = Add("LINE", *order1_->Context(), {{"ITEM", "b"}, {"QTY", "3"}, {"PRICE", "2.25"}});
    lines_[2] = Add("LINE", *order1_->Context(), {{"ITEM", "a"}, {"QTY", "5"}, {"PRICE", "0.5"}, {"CODE", "y"}});
    detail_ = Add("DETAIL", *lines_[0]->Context(), {{"TEXT", "first"}});
    order2_ = Add("ORDER", *top, {{"NUMBER", "2"}});
    Add("LINE", *order2_->Context(), {{"ITEM", "z"}, {"QTY", "7"}, {"PRICE", "9"}});

    functions_ = MakeRef<Functions>();
    engine_.AddObject("objFunctions", functions_, true);
    functions_->SetCurrentTransaction(order1_);
  }

  Ref<Transaction> Add(const std::string& id, TransactionContext& at,
                       std::initializer_list<std::pair<const char*, const char*>> values) {
    Ref<Transaction> record = factory_->CreateTransaction(id);
    for (const auto& [name, value] : values) record->SetFieldValue(name, Variant(value));
    factory_->AddTransaction(*record, at);
    return record;
  }

  Variant Eval(const std::string& formula) { return engine_.Eval(formula); }
  std::string Text(const std::string& formula) { return Eval(formula).ToString(); }

  Error ErrorOf(const std::string& formula) {
    try {
      engine_.Eval(formula);
    } catch (const Error& e) {
      return e;
    }
    ADD_FAILURE() << formula << " raised no error";
    return Error(0, "");
  }

  std::shared_ptr<TransactionFactory> factory_;
  Ref<Transaction> order1_, order2_, detail_;
  Ref<Transaction> lines_[3];
  Ref<Functions> functions_;
  vbs::Engine engine_;
};

double Serial(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  return *DateTime::FromParts(DateParts{year, month, day, hour, minute, second, 0});
}

// Sets TZ for the life of the object.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    if (const char* was = std::getenv("TZ")) previous_ = was;
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  ~TimeZone() {
    if (previous_) ::setenv("TZ", previous_->c_str(), 1); else ::unsetenv("TZ");
    ::tzset();
  }

 private:
  std::optional<std::string> previous_;
};

// --- Values -----------------------------------------------------------------------------

TEST_F(FunctionsTest, FormatSpeaksTheFormatLanguageOfTheEngine) {
  EXPECT_EQ(Text("Format(#2/29/2024#, \"yyyy-mm-dd\")"), "2024-02-29");
  EXPECT_EQ(Text("objFunctions.Format(3.14159, \"0.00\")"), "3.14");
  EXPECT_EQ(Eval("Format(1, \"0\")").Type(), VarType::String);
}

TEST_F(FunctionsTest, TitleCaseStartsEveryWordWithACapital) {
  EXPECT_EQ(Text("TitleCase(\"hello WORLD\")"), "Hello World");
  EXPECT_EQ(Text("TitleCase(\"o'NEIL mary-JANE\")"), "O'neil Mary-jane");
  EXPECT_EQ(Text("TitleCase(\"a\" & vbTab & \"b\" & vbCrLf & \"c  d\")"), "A\tB\r\nC  D");
  EXPECT_EQ(Text("TitleCase(\"ÉCOLE élève\")"), "École Élève");
  EXPECT_EQ(Text("objFunctions.TitleCase(\"\")"), "");
}

TEST_F(FunctionsTest, FindReplaceComparesBinaryAndDropsWhatStandsBeforeTheStart) {
  EXPECT_EQ(Text("FindReplace(\"aXbXc\", \"X\", \"-\", 1, -1)"), "a-b-c");
  EXPECT_EQ(Text("FindReplace(\"aXbXc\", \"X\", \"-\", 3, 1)"), "b-c");
  EXPECT_EQ(Text("FindReplace(\"aXbXc\", \"x\", \"-\", 1, -1)"), "aXbXc");
  EXPECT_EQ(Text("FindReplace(\"aXbXc\", \"X\", \"\")"), "abc");
  EXPECT_EQ(ErrorOf("FindReplace(\"abc\", \"b\", \"\", 0, -1)").number(), 5);
}

TEST_F(FunctionsTest, StringLikeMatchesThePatternLanguage) {
  EXPECT_TRUE(Eval("StringLike(\"abc\", \"a?c\")").ToBool());
  EXPECT_FALSE(Eval("StringLike(\"abbc\", \"a?c\")").ToBool());
  EXPECT_TRUE(Eval("StringLike(\"abbbc\", \"a*c\")").ToBool());
  EXPECT_TRUE(Eval("StringLike(\"ac\", \"a*c\")").ToBool());
  EXPECT_TRUE(Eval("StringLike(\"a*c\", \"a*c*\")").ToBool());
  EXPECT_TRUE(Eval("StringLike(\"abcbcd\", \"*bc*d\")").ToBool());
  EXPECT_FALSE(Eval("StringLike(\"abcbce\", \"*bc*d\")").ToBool());
  EXPECT_TRUE(Eval("StringLike(\"A12\", \"A##\")").ToBool());
  EXPECT_FALSE(Eval("StringLike(\"A1x\", \"A##\")").ToBool());
  EXPECT_TRUE(Eval("StringLike(\"bx\", \"[a-c]x\")").ToBool());
  EXPECT_FALSE(Eval("StringLike(\"dx\", \"[a-c]x\")").ToBool());
  EXPECT_TRUE(Eval("StringLike(\"dx\", \"[!a-c]x\")").ToBool());
  EXPECT_TRUE(Eval("StringLike(\"-\", \"[a-]\")").ToBool());
  EXPECT_TRUE(Eval("StringLike(\"a[b\", \"a[[]b\")").ToBool());
  EXPECT_TRUE(Eval("StringLike(\"ab\", \"a[]b\")").ToBool());
  EXPECT_TRUE(Eval("StringLike(\"é\", \"?\")").ToBool());
  EXPECT_FALSE(Eval("StringLike(\"ABC\", \"abc\")").ToBool());  // binary comparison
  EXPECT_TRUE(Eval("StringLike(\"\", \"*\")").ToBool());
  EXPECT_FALSE(Eval("StringLike(\"\", \"?\")").ToBool());
  EXPECT_TRUE(Eval("objFunctions.StringLike(123, \"1#3\")").ToBool());
  EXPECT_EQ(ErrorOf("StringLike(\"a\", \"[a\")").number(), 93);
  EXPECT_EQ(ErrorOf("StringLike(\"a\", \"[z-a]\")").number(), 93);
  EXPECT_EQ(ErrorOf("StringLike(Null, \"a\")").number(), 94);
}

TEST_F(FunctionsTest, EncryptStringNeedsTheKeyOfASession) {
  Error e = ErrorOf("EncryptString(\"secret\")");
  EXPECT_EQ(e.number(), 9591);
  EXPECT_NE(e.description().find("Functions.EncryptString("), std::string::npos);
  EXPECT_EQ(e.description().find("secret"), std::string::npos) << "the password must stay out of the trace";
}

TEST_F(FunctionsTest, EncryptStringUsesTheKeyOfTheSessionConfiguration) {
  test::JobEnvironment env;
  const std::string keyFile = (env.Folder() / "cipher.key").string();
  PasswordCipher::CreateKeyFile(keyFile);
  AppConfig::Write(env.Folder().string(), {{"DEFCHARSET", "utf-8"},
                                           {"DEBUGPATH", env.DebugPath().string()},
                                           {"WORKPATH", env.WorkPath().string()},
                                           {"JOBCONFPATH", (env.Folder() / "conf").string()},
                                           {"DBCONAX", env.DatabaseText()},
                                           {PasswordCipher::kConfigKey, keyFile}});
  const std::string jobId = env.JobId("cipher");
  env.AddJob(jobId, test::JobDocument(jobId, {}));
  TesselSession host;
  host.InitialiseSession(jobId, false, false, "client");

  const std::string cipherText = Text("EncryptString(\"secret\")");
  EXPECT_TRUE(PasswordCipher::IsCipherText(cipherText)) << cipherText;
  PasswordCipher cipher;
  cipher.Initialise(keyFile);
  EXPECT_EQ(cipher.Decrypt(cipherText), "secret");
  EXPECT_EQ(cipher.Decrypt(Text("objFunctions.EncryptString(\"\")")), "");
}

TEST_F(FunctionsTest, LastDayInMonthCarriesDecemberIntoTheNextYear) {
  EXPECT_EQ(Eval("LastDayInMonth(2, 2024)").ToLong(), 29);
  EXPECT_EQ(Eval("LastDayInMonth(2, 2023)").ToLong(), 28);
  EXPECT_EQ(Eval("LastDayInMonth(12, 2023)").ToLong(), 31);
  EXPECT_EQ(Eval("objFunctions.LastDayInMonth(4, 2024)").ToLong(), 30);
  EXPECT_EQ(Eval("LastDayInMonth(4, 2024)").Type(), VarType::Long);
}

TEST_F(FunctionsTest, NumberToDateReadsTheErpForm) {
  Variant zero = Eval("NumberToDate(0)");
  EXPECT_EQ(zero.Type(), VarType::Date);
  EXPECT_EQ(zero.DateValue(), Serial(1900, 1, 1));
  EXPECT_EQ(Eval("NumberToDate(20240229)").DateValue(), Serial(2024, 2, 29));
  EXPECT_EQ(Eval("NumberToDate(20241301)").DateValue(), Serial(2025, 1, 1));
  EXPECT_EQ(Eval("NumberToDate(20240230)").DateValue(), Serial(2024, 3, 1));
  EXPECT_EQ(ErrorOf("NumberToDate(2024)").number(), 13);
}

TEST_F(FunctionsTest, TimeConversionsUseThePresentOffsetOfTheMachine) {
  TimeZone zone("<+0530>-5:30");
  EXPECT_EQ(Eval("UTCToLocalTime(#1/1/2024 10:00:00 AM#)").DateValue(), Serial(2024, 1, 1, 15, 30));
  EXPECT_EQ(Eval("LocalToUTCTime(#1/1/2024 3:30:00 PM#)").DateValue(), Serial(2024, 1, 1, 10, 0));
  EXPECT_EQ(Eval("objFunctions.LocalToUTCTime(#1/1/2024 1:00:00 AM#)").DateValue(), Serial(2023, 12, 31, 19, 30));
  // Milliseconds are dropped: the result is on the second.
  Variant withMillis = Eval("UTCToLocalTime(CDbl(#1/1/2024 10:00:00 AM#) + 0.2 / 86400)");
  EXPECT_EQ(withMillis.DateValue(), Serial(2024, 1, 1, 15, 30));
}

TEST_F(FunctionsTest, ISO8601ToDateTakesTheZoneToUtcAndThenToLocalTime) {
  {
    TimeZone zone("UTC0");
    EXPECT_EQ(Eval("ISO8601ToDate(\"2024-02-29T10:15:30.123+01:00\")").DateValue(), Serial(2024, 2, 29, 9, 15, 30));
    EXPECT_EQ(Eval("ISO8601ToDate(\"2024-02-29\")").DateValue(), Serial(2024, 2, 29));
    EXPECT_EQ(Eval("ISO8601ToDate(\"2024-02-29T10:15:30Z\")").DateValue(), Serial(2024, 2, 29, 10, 15, 30));
    EXPECT_EQ(Eval("ISO8601ToDate(\"2024-02-29T22:00:00-05:00\")").DateValue(), Serial(2024, 3, 1, 3, 0, 0));
    EXPECT_EQ(Eval("ISO8601ToDate(\"2024-02-29T10:15\")").DateValue(), Serial(2024, 2, 29, 10, 15, 0));
  }
  TimeZone zone("<+0530>-5:30");
  EXPECT_EQ(Eval("ISO8601ToDate(\"2024-02-29T10:15:30.123+01:00\")").DateValue(), Serial(2024, 2, 29, 14, 45, 30));
  EXPECT_EQ(Eval("objFunctions.ISO8601ToDate(\"2024-02-29\")").DateValue(), Serial(2024, 2, 29, 5, 30));
  Error e = ErrorOf("ISO8601ToDate(\"2024-02-29T10:15:30+0100\")");
  EXPECT_EQ(e.number(), 13);
  EXPECT_NE(e.description().find("Functions.ISO8601ToDate(iso="), std::string::npos);
  EXPECT_EQ(ErrorOf("ISO8601ToDate(\"not a date\")").number(), 13);
}

// --- Records ----------------------------------------------------------------------------

TEST_F(FunctionsTest, TheTransactionPropertyIsTheCurrentRecord) {
  EXPECT_EQ(Text("TypeName(objFunctions.Transaction)"), "Transaction");
  EXPECT_EQ(Text("TypeName(Transaction)"), "Transaction");
  engine_.AddObject("oLine", lines_[0]);
  engine_.ExecuteStatement("Set objFunctions.Transaction = oLine");
  EXPECT_EQ(functions_->CurrentTransaction(), lines_[0]);
  EXPECT_EQ(Eval("Count(\"DETAIL\")").ToLong(), 1);
  engine_.ExecuteStatement("Set objFunctions.Transaction = Nothing");
  EXPECT_FALSE(functions_->CurrentTransaction());
  EXPECT_TRUE(Eval("objFunctions.Transaction Is Nothing").ToBool());
  EXPECT_EQ(ErrorOf("Count(\"LINE\")").number(), 91);
  engine_.AddObject("oDictionary", MakeRef<vbs::Dictionary>());
  try {
    engine_.ExecuteStatement("Set objFunctions.Transaction = oDictionary");
    ADD_FAILURE() << "a dictionary was taken for a record";
  } catch (const Error& e) {
    EXPECT_EQ(e.number(), 13);
  }
}

TEST_F(FunctionsTest, CountCountsTheRecordsBelowTheCurrentOne) {
  EXPECT_EQ(Eval("Count(\"LINE\")").ToLong(), 3);
  EXPECT_EQ(Eval("objFunctions.Count(\"%LINE\")").ToLong(), 3);
  EXPECT_EQ(Eval("Count(\"DETAIL\")").ToLong(), 1);
  functions_->SetCurrentTransaction(order2_);
  EXPECT_EQ(Eval("Count(\"LINE\")").ToLong(), 1);
  EXPECT_EQ(Eval("Count(\"DETAIL\")").ToLong(), 0);
  EXPECT_EQ(ErrorOf("Count(\"\")").number(), 5);
}

TEST_F(FunctionsTest, SumAddsAFieldOverRecordsOrOverTheValuesOfTheCurrentOne) {
  EXPECT_DOUBLE_EQ(Eval("Sum(\"QTY\", \"LINE\")").ToDouble(), 10);
  EXPECT_DOUBLE_EQ(Eval("objFunctions.Sum(\"%PRICE\", \"%LINE\")").ToDouble(), 4.25);
  EXPECT_EQ(Eval("Sum(\"QTY\", \"LINE\")").Type(), VarType::Double);
  functions_->SetCurrentTransaction(order2_);
  EXPECT_DOUBLE_EQ(Eval("Sum(\"QTY\", \"DETAIL\")").ToDouble(), 0);

  order1_->SetFieldValue("AMOUNTS", Variant("1"));
  order1_->SetFieldValue("AMOUNTS", Variant("2"));
  order1_->SetFieldValue("AMOUNTS", Variant("3"));
  functions_->SetCurrentTransaction(order1_);
  EXPECT_DOUBLE_EQ(Eval("Sum(\"AMOUNTS\", \".\")").ToDouble(), 6);
  EXPECT_DOUBLE_EQ(Eval("Sum(\"%AMOUNTS\", \".\")").ToDouble(), 6);
}

TEST_F(FunctionsTest, SumCountsTrueBooleansAsMinusOne) {
  lines_[0]->SetFieldValue("DONE", Variant(true));
  lines_[1]->SetFieldValue("DONE", Variant("False"));
  lines_[2]->SetFieldValue("DONE", Variant("True"));
  EXPECT_DOUBLE_EQ(Eval("Sum(\"DONE\", \"LINE\")").ToDouble(), -2);
  functions_->SetCurrentTransaction(lines_[0]);
  EXPECT_DOUBLE_EQ(Eval("Sum(\"DONE\", \".\")").ToDouble(), -1);
}

TEST_F(FunctionsTest, SumTakesOnlyNumbersAndOneValueARecord) {
  Error e = ErrorOf("Sum(\"ITEM\", \"LINE\")");
  EXPECT_EQ(e.number(), Functions::kSumNotNumeric);
  EXPECT_NE(e.description().find("Function Sum can only accept types Decimal, Integer or Boolean fields."),
            std::string::npos);
  EXPECT_NE(e.description().find("Functions.Sum(sField='ITEM', sTranId='LINE')"), std::string::npos);
  EXPECT_EQ(ErrorOf("Sum(\"NUMBER\", \".\")").number(), Functions::kSumNotNumeric);

  // In selector mode a record whose field has several values is no number.
  lines_[1]->SetFieldValue("MULTI", Variant("1"));
  lines_[1]->SetFieldValue("MULTI", Variant("2"));
  EXPECT_EQ(ErrorOf("Sum(\"MULTI\", \"LINE\")").number(), 13);
  functions_->SetCurrentTransaction(lines_[1]);
  EXPECT_DOUBLE_EQ(Eval("Sum(\"MULTI\", \".\")").ToDouble(), 3);
}

TEST_F(FunctionsTest, DistinctCountCountsDifferentValues) {
  EXPECT_EQ(Eval("DistinctCount(\"ITEM\", \"LINE\")").ToLong(), 2);
  EXPECT_EQ(Eval("DistinctCount(\"%QTY\", \"%LINE\")").ToLong(), 3);
  Error binary = ErrorOf("DistinctCount(\"BLOB\", \"LINE\")");
  EXPECT_EQ(binary.number(), Functions::kBinaryNotAllowed);
  EXPECT_NE(binary.description().find("DistinctCount function cannot work on Binary type."), std::string::npos);

  order1_->SetFieldValue("TAGS", Variant("1"));
  order1_->SetFieldValue("TAGS", Variant("2"));
  order1_->SetFieldValue("TAGS", Variant("3"));
  EXPECT_EQ(Eval("DistinctCount(\"TAGS\", \".\")").ToLong(), 3);
  // The values of the current record are added without a test.
  order1_->SetFieldValue("TAGS", Variant("2"));
  EXPECT_EQ(ErrorOf("DistinctCount(\"TAGS\", \".\")").number(), 457);
  EXPECT_EQ(Eval("DistinctCount(\"NUMBER\", \".\")").ToLong(), 1);
}

TEST_F(FunctionsTest, MinimumAndMaximumCompareByTheFieldType) {
  Variant cheapest = Eval("Minimum(\"PRICE\", \"LINE\")");
  EXPECT_EQ(cheapest.Type(), VarType::Decimal);
  EXPECT_DOUBLE_EQ(cheapest.ToDouble(), 0.5);
  EXPECT_DOUBLE_EQ(Eval("objFunctions.Maximum(\"%PRICE\", \"%LINE\")").ToDouble(), 2.25);
  EXPECT_EQ(Eval("Maximum(\"QTY\", \"LINE\")").ToLong(), 5);
  // As text "10" < "9"; as integers 9 < 10.
  lines_[0]->SetFieldValue("QTY", Variant("10"));
  lines_[2]->SetFieldValue("QTY", Variant("9"));
  EXPECT_EQ(Eval("Maximum(\"QTY\", \"LINE\")").ToLong(), 10);
  EXPECT_EQ(Text("Maximum(\"ITEM\", \"LINE\")"), "b");

  functions_->SetCurrentTransaction(order2_);
  EXPECT_TRUE(Eval("Minimum(\"TEXT\", \"DETAIL\")").IsEmpty());
  EXPECT_TRUE(Eval("Maximum(\"TEXT\", \"DETAIL\")").IsEmpty());

  functions_->SetCurrentTransaction(order1_);
  order1_->SetFieldValue("AMOUNTS", Variant("2"));
  order1_->SetFieldValue("AMOUNTS", Variant("1"));
  order1_->SetFieldValue("AMOUNTS", Variant("3"));
  EXPECT_DOUBLE_EQ(Eval("Minimum(\"AMOUNTS\", \".\")").ToDouble(), 1);
  EXPECT_DOUBLE_EQ(Eval("Maximum(\"AMOUNTS\", \".\")").ToDouble(), 3);
  EXPECT_EQ(Text("Minimum(\"NUMBER\", \".\")"), "1");
  Error e = ErrorOf("Maximum(\"BLOB\", \".\")");
  EXPECT_EQ(e.number(), Functions::kBinaryNotAllowed);
  EXPECT_NE(e.description().find("Maximum function cannot work on Binary type."), std::string::npos);
  EXPECT_NE(ErrorOf("Minimum(\"BLOB\", \"LINE\")").description().find("Minimum function cannot work on Binary type."),
            std::string::npos);
}

TEST_F(FunctionsTest, ConcatenateSkipsEmptyValuesAndKeepsItsCurrentRecordQuirks) {
  EXPECT_EQ(Text("Concatenate(\"CODE\", \"LINE\", \"-\")"), "x-y");
  EXPECT_EQ(Text("Concatenate(\"%ITEM\", \"LINE\", \", \")"), "a, b, a");
  EXPECT_EQ(Text("objFunctions.Concatenate(\"%CODE\", \"%LINE\", \"-\")"), "x-y");
  functions_->SetCurrentTransaction(order2_);
  EXPECT_EQ(Text("Concatenate(\"TEXT\", \"DETAIL\", \",\")"), "");

  functions_->SetCurrentTransaction(order1_);
  order1_->SetFieldValue("CODES", Variant("one"));
  EXPECT_EQ(Text("Concatenate(\"CODES\", \".\", \",\")"), "one");
  order1_->SetFieldValue("CODES", Variant("two"));
  EXPECT_EQ(Text("Concatenate(\"CODES\", \".\", \",\")"), "");
  // In current-record mode the name is not dereferenced.
  EXPECT_EQ(ErrorOf("Concatenate(\"%CODES\", \".\", \",\")").number(), 8103);
}

TEST_F(FunctionsTest, IsFieldNullAndSetFieldNull) {
  EXPECT_TRUE(Eval("IsFieldNull(\"NOTE\")").ToBool());
  EXPECT_FALSE(Eval("IsFieldNull(\"NUMBER\")").ToBool());
  Variant result = Eval("SetFieldNull(\"NUMBER\")");
  EXPECT_EQ(result.Type(), VarType::String);
  EXPECT_EQ(result.ToString(), "");
  EXPECT_FALSE(order1_->IsFieldSet("NUMBER"));
  EXPECT_TRUE(Eval("objFunctions.IsFieldNull(\"NUMBER\")").ToBool());
  // Storing the formula's empty result does not bring a value back.
  order1_->SetFieldValue("NUMBER", result);
  EXPECT_FALSE(order1_->IsFieldSet("NUMBER"));
  EXPECT_EQ(ErrorOf("IsFieldNull(\"NOPE\")").number(), 8103);
}

TEST_F(FunctionsTest, NextAndPreviousRecordReadTheNeighbours) {
  functions_->SetCurrentTransaction(lines_[1]);
  EXPECT_EQ(Text("NextRecord(\"ITEM\")"), "a");
  EXPECT_EQ(Text("PreviousRecord(\"QTY\")"), "2");
  functions_->SetCurrentTransaction(lines_[0]);
  EXPECT_TRUE(Eval("PreviousRecord(\"ITEM\")").IsEmpty());
  EXPECT_EQ(Text("objFunctions.NextRecord(\"ITEM\")"), "b");
  functions_->SetCurrentTransaction(lines_[2]);
  EXPECT_TRUE(Eval("NextRecord(\"ITEM\")").IsEmpty());
  functions_->SetCurrentTransaction(order1_);
  EXPECT_EQ(Text("NextRecord(\"NUMBER\")"), "2");
}

TEST_F(FunctionsTest, SubPushDownWritesIntoTheRecordsBelowOnly) {
  EXPECT_TRUE(Eval("IsEmpty(SubPushDown(\"PUSHED\", \"%LINE\", \"from order\"))").ToBool());
  for (const auto& line : lines_) EXPECT_EQ(line->GetFieldValues("PUSHED").ToString(), "from order");
  functions_->SetCurrentTransaction(order2_);
  engine_.ExecuteStatement("objFunctions.SubPushDown \"QTY\", \"LINE\", 99");
  EXPECT_EQ(Eval("Sum(\"QTY\", \"LINE\")").ToDouble(), 99);
  EXPECT_EQ(lines_[0]->GetFieldValues("QTY").ToString(), "2");
  // Without overwriting, a multi-valued field gains a value each time.
  functions_->SetCurrentTransaction(order1_);
  Eval("SubPushDown(\"MULTI\", \"LINE\", 4)");
  Eval("SubPushDown(\"MULTI\", \"LINE\", 5)");
  functions_->SetCurrentTransaction(lines_[2]);
  EXPECT_DOUBLE_EQ(Eval("Sum(\"MULTI\", \".\")").ToDouble(), 9);
  // Only the record id is dereferenced.
  functions_->SetCurrentTransaction(order1_);
  EXPECT_EQ(ErrorOf("SubPushDown(\"%PUSHED\", \"LINE\", 1)").number(), 8103);
}

TEST_F(FunctionsTest, GetParentWalksUpToTheNamedRecord) {
  functions_->SetCurrentTransaction(detail_);
  EXPECT_EQ(Text("GetParent(\"NUMBER\", \"ORDER\")"), "1");
  EXPECT_EQ(Text("objFunctions.GetParent(\"ITEM\", \"%LINE\")"), "a");
  Error self = ErrorOf("GetParent(\"TEXT\", \"DETAIL\")");
  EXPECT_EQ(self.number(), Functions::kInvalidParent);
  EXPECT_NE(self.description().find("Transaction [DETAIL] is not a parent of [DETAIL]."), std::string::npos);
  EXPECT_NE(self.description().find("Functions.GetParent(sFieldId='TEXT', sTransactionId='DETAIL')"), std::string::npos);
  Error unknown = ErrorOf("GetParent(\"X\", \"NOPE\")");
  EXPECT_EQ(unknown.number(), Functions::kInvalidParent);
  EXPECT_NE(unknown.description().find("Transaction [NOPE] is invalid."), std::string::npos);
  functions_->SetCurrentTransaction(order1_);
  EXPECT_NE(ErrorOf("GetParent(\"ITEM\", \"LINE\")").description().find("Transaction [LINE] is not a parent of [ORDER]."),
            std::string::npos);
}

TEST_F(FunctionsTest, RecordMembersFailWithoutACurrentRecord) {
  functions_->SetCurrentTransaction(nullptr);
  for (const char* formula : {"Sum(\"QTY\", \"LINE\")", "Sum(\"QTY\", \".\")", "Concatenate(\"A\", \".\", \",\")",
                              "IsFieldNull(\"A\")", "NextRecord(\"A\")", "GetParent(\"A\", \"ORDER\")"}) {
    EXPECT_EQ(ErrorOf(formula).number(), 91) << formula;
  }
}

// --- Later members ----------------------------------------------------------------------

TEST_F(FunctionsTest, MembersOfLaterWorkAreBoundAndSayTheyAreNotAvailable) {
  for (const char* formula :
       {"Lookup(\"L\", \"F\", 1, True)", "RegisterValue(\"k\", 1)", "GetRegisteredValue(\"k\")",
        "RegisterGlobalValue(\"k\", 1)", "GetGlobalValue(\"k\")", "CountryNameLookup(\"DE\", \"ENG\")",
        "CountryTableLookup(\"DE\", \"ENG\", \"ISO3\")", "FuzzyCountryNameLookup(\"x\", \"ENG\", \"ISO2\", True)",
        "GetCounterSequence(\"C\")", "WriteToLog(1, \"m\")", "AccpacFiscalYear(\"SAMLTD\", Now)",
        "AccpacFiscalPeriod(\"SAMLTD\", Now)", "AccpacIsPeriodOpen(\"SAMLTD\", Now)",
        "AccpacRecordExists(\"S\", 1, \"V\", \"F\", 1)", "AccpacERPLookup(\"S\", 1, \"V\", \"F\", 1, \"R\")",
        "SageCRMLookup(1, 2, 3, 4, 5, 6)", "SageCRMLookupReturnMultipleValues(1, 2, 3, 4, 5, 6)",
        "SageCRMLookupCustomWhere(1, 2, 3, 4, 5)", "SageCRMValidateDropDown(1, 2, 3, 4, 5)",
        "objFunctions.SageCRMTranslateDropDownValue(1, 2, 3, 4, 5)"}) {
    Error e = ErrorOf(formula);
    EXPECT_EQ(e.number(), Functions::kNotAvailable) << formula;
    EXPECT_NE(e.description().find("is not available in this engine yet."), std::string::npos) << formula;
  }
  EXPECT_NE(ErrorOf("Lookup(\"L\", \"F\", 1, True)").description().find("Function [Lookup]"), std::string::npos);
}

// --- Files ------------------------------------------------------------------------------

TEST_F(FunctionsTest, PathMembersForwardToTheFileSystem) {
  EXPECT_EQ(Text("FilePath(\"/data/in/orders.csv\")"), "/data/in");
  EXPECT_EQ(Text("FileName(\"/data/in/orders.csv\")"), "orders.csv");
  EXPECT_EQ(Text("objFunctions.BuildPath(\"/data/in\", \"orders.csv\")"), "/data/in/orders.csv");
}

TEST_F(FunctionsTest, TextFilesAreWrittenAndReadAsUtf8) {
  test::TempDir dir;
  const std::string file = (dir / "notes.txt").string();
  engine_.ExecuteStatement("Dim sPath : sPath = \"" + file + "\"");
  EXPECT_FALSE(Eval("FileExists(sPath)").ToBool());
  Variant written = Eval("WriteTextFile(sPath, \"Grüße\" & vbCrLf)");
  EXPECT_EQ(written.Type(), VarType::String);
  EXPECT_EQ(written.ToString(), "");
  EXPECT_TRUE(Eval("objFunctions.FileExists(sPath)").ToBool());
  EXPECT_EQ(test::ReadFileText(dir / "notes.txt"), "Grüße\r\n");
  // Writing again adds to what is there.
  Eval("WriteTextFile(sPath, \"more\")");
  EXPECT_EQ(Text("ReadTextFile(sPath, True)"), "Grüße\r\nmore");
  EXPECT_EQ(Text("Len(ReadTextFile(sPath, False))"), "11");
}

TEST_F(FunctionsTest, AMissingFileReadsEmptyOnlyWhenAskedTo) {
  test::TempDir dir;
  const std::string missing = (dir / "missing.txt").string();
  EXPECT_EQ(Text("ReadTextFile(\"" + missing + "\", False)"), "");
  // The swallowed failure leaves nothing behind for the next one.
  Error next = ErrorOf("Sum(\"ITEM\", \"LINE\")");
  EXPECT_EQ(next.description().find("missing.txt"), std::string::npos) << next.description();
  Error e = ErrorOf("ReadTextFile(\"" + missing + "\", True)");
  EXPECT_NE(e.number(), 0);
  EXPECT_NE(e.description().find("Functions.ReadTextFile(sFile="), std::string::npos);
  EXPECT_NE(ErrorOf("ReadTextFile(\"" + missing + "\")").number(), 0);
  // A file cannot be written into a folder that does not exist.
  EXPECT_NE(ErrorOf("WriteTextFile(\"" + (dir / "no" / "such.txt").string() + "\", \"x\")").number(), 0);
}

}  // namespace
}  // namespace tessel
