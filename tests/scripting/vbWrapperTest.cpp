// The script host: field references replaced from real records, multi-line
// code wrapped into functions, the function library of functionh.xml, the
// error texts that reach a job, the verbose log, and file names evaluated
// through a FileSystemWrapper.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "audit/HuntErr.h"
#include "core/Error.h"
#include "scripting/EEScriptControl.h"
#include "scripting/Functions.h"
#include "scripting/SimpleVBWrapper.h"
#include "scripting/vbWrapper.h"
#include "scripting/vbs/Engine.h"
#include "services/FileSystemWrapper.h"
#include "tests/store/StoreFixture.h"
#include "tests/support/JobEnvironment.h"
#include "tests/support/TempDir.h"
#include "tests/transforms/TransformFixture.h"

namespace tessel {
namespace {

using test::CatchError;

const char* kOrderDefinition =
    "<TRANSFORM id=\"T1\" parentid=\"\" type=\"1\"><OPTIONS/><TRANSFORMDETAIL><RECORDS>"
    "<RECORD id=\"ORDER\" parentid=\"\" hashcode=\"1\">"
    "<FIELD name=\"Name\" type=\"3\"/>"
    "<FIELD name=\"Amount\" type=\"2\"/>"
    "<FIELD name=\"Qty\" type=\"1\"/>"
    "<FIELD name=\"A\" type=\"1\"/>"
    "<FIELD name=\"B\" type=\"1\"/>"
    "<FIELD name=\"Full Name\" type=\"3\"/>"
    "<FIELD name=\"Tags\" type=\"3\" allowmultiplevals=\"True\"/>"
    "<FIELD name=\"Counts\" type=\"1\" allowmultiplevals=\"True\"/>"
    "</RECORD></RECORDS></TRANSFORMDETAIL></TRANSFORM>";

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

class ScriptHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    order->SetFieldValue("A", Variant(1));
    order->SetFieldValue("B", Variant(2));
  }

  vbWrapper& Host() {
    if (!host_) {
      host_ = std::make_unique<vbWrapper>();
      host_->Initialize("T1", false, nullptr, 60);
    }
    return *host_;
  }
  std::string Resolve(const std::string& expression) { return Host().ResolveSubstitutions(expression, order.get()); }
  Variant Eval(const std::string& expression, const std::string& field = "F") {
    return Host().Evaluate(expression, order.get(), field);
  }

  test::JobEnvironment env;
  std::shared_ptr<TransactionFactory> factory = test::MakeFactory(kOrderDefinition);
  Ref<Transaction> order = factory->CreateTransaction("ORDER");
  std::unique_ptr<vbWrapper> host_;
};

// --- Substitution ------------------------------------------------------------------------

TEST_F(ScriptHostTest, NumbersGoInBareAndStringsQuoted) {
  order->SetFieldValue("Amount", Variant(21));
  EXPECT_EQ(Resolve("%Amount*2"), "21*2");
  EXPECT_EQ(Eval("%Amount*2").ToDouble(), 42);

  order->SetFieldValue("Name", Variant("Smith"));
  EXPECT_EQ(Resolve("UCase(%Name)"), "UCase(\"Smith\")");
  EXPECT_EQ(Eval("UCase(%Name)").ToString(), "SMITH");
  EXPECT_EQ(Resolve("1 + 2"), "1 + 2");
}

TEST_F(ScriptHostTest, QuotesInValuesAreDoubledAndTheAuthorsQuotesStand) {
  order->SetFieldValue("Name", Variant("O\"Neil"));
  EXPECT_EQ(Resolve("%Name"), "\"O\"\"Neil\"");
  EXPECT_EQ(Resolve("\"%Name\""), "\"O\"\"Neil\"");
  EXPECT_EQ(Eval("\"%Name\"").ToString(), "O\"Neil");
  // With text before the reference inside the literal the quotes are added
  // all the same, and the engine rejects the result.
  EXPECT_EQ(Resolve("\"x%Name\""), "\"x\"O\"\"Neil\"\"");
  const Error rejected = CatchError([&] { Eval("\"x%Name\""); });
  EXPECT_TRUE(Has(rejected.description(), "Error whilst evaluating field [F] on transaction type [ORDER].")) << rejected.description();
}

TEST_F(ScriptHostTest, LineBreaksInValuesBecomeScriptLineBreaks) {
  order->SetFieldValue("Name", Variant("line1\nline2"));
  EXPECT_EQ(Resolve("%Name"), "\"line1\" & vbCrLf & \"line2\"");
  EXPECT_EQ(Eval("%Name").ToString(), "line1\r\nline2");
  order->SetFieldValue("Name", Variant("a\r\nb"));
  // The value's carriage return stays inside the literal, where the engine
  // takes it for the end of the line.
  EXPECT_EQ(Resolve("%Name"), "\"a\r\" & vbCrLf & \"b\"");
  EXPECT_TRUE(Has(CatchError([&] { Eval("Len(%Name)"); }).description(), "Unterminated string constant"));
}

TEST_F(ScriptHostTest, EmptyAndUnsetValues) {
  EXPECT_EQ(Resolve("%Name & \"-\""), "\"\" & \"-\"");
  EXPECT_EQ(Resolve("%Qty + 1"), "0 + 1");
  EXPECT_EQ(Resolve("\"%Name\""), "\"\"\"\"");
}

// A formula is parsed once and takes each record's values; whatever the
// values, the result, or the error with the text its report shows, is the
// one the written-out text gives.
TEST_F(ScriptHostTest, AFormulaGivesWhatItsWrittenOutTextGivesForEveryRecord) {
  const std::vector<std::string> formulas = {
      "%Amount*2", "-%Qty^2", "-%Amount", "%Name = 5", "%Qty = \"12\"", "%Name & %Qty", "UCase(%Name)",
      "Len(%Name)", "\"a\" & %Name & \"b\"", "%Qty&\"x\"", "%Name<>\"\"", "(%Amount+%Qty)/2",
      "IIf(%Qty > 10, \"big\", \"small\")", "%[Full Name] & \"!\"", "%Amount\\2", "%Amount Mod 3",
      "Not %Qty", "%Qty.5", "%Name(1)", "1 + 2", "%Amount+%Amount", "\"%Name\"", "%Name%Qty", "%Name'note",
      "#%Name#", "%Qty & %%Name", "TypeName(%Qty)", "TypeName(%Amount)", "%Name Is Nothing", "[%Name]",
      "%Amount<%Qty", "%Name & \"\x01\x02\"",
      // Operands that the written-out text folds into one literal compare
      // by the rules for literals.
      "-%Amount = \"-5\"", "%Amount + 1 = \"6\"", "%Qty & 1 = 31", "%Qty * 2 = \"6\"", "\"5\" = %Amount - 0",
      "%Name & \"1\" = 51", "%Qty & %Amount = \"33\"", "+%Qty = \"3\"", "(%Qty + 1) = \"4\"", "1E-%Qty",
      "1E+%Qty", "\"x %Qty y\" & \x01\x01", "%Amount / 0"};
  const std::vector<std::string> names = {"Smith", "", "O\"Neil", "5", "12.5", "a\rb", "line1\nline2",
                                          "#1/1/2020#", "x'y", "%Qty", "\x01\x02", "\"", "Caf\xC3\xA9"};
  const std::vector<std::string> numbers = {"21", "-5", "12.5", ".5", "1e3", "1E+3", "007", "40000",
                                            "2147483648", "abc", "", "12abc", "&H10", "1.2.3", " 12", "3"};
  size_t compared = 0;
  for (size_t row = 0; row < names.size() * 3; ++row) {
    order->UnsetField("Name");
    order->UnsetField("Full Name");
    order->UnsetField("Amount");
    order->UnsetField("Qty");
    order->SetFieldValue("Name", Variant(names[row % names.size()]));
    order->SetFieldValue("Full Name", Variant(names[(row + 5) % names.size()]));
    order->SetFieldValue("Amount", Variant(numbers[row % numbers.size()]));
    order->SetFieldValue("Qty", Variant(numbers[(row * 7 + 3) % numbers.size()]));
    for (const std::string& formula : formulas) {
      std::string resolved;
      std::string written;
      try {
        resolved = Resolve(formula);
        const Variant value = Host().SimpleEvaluate(Variant(resolved));
        written = value.TypeName() + ":" + (value.IsArray() || value.IsObject() ? "" : value.ToString());
      } catch (const Error& e) {
        written = "error " + std::to_string(e.number());
      }
      std::string planned;
      try {
        const Variant value = Eval(formula);
        planned = value.TypeName() + ":" + (value.IsArray() || value.IsObject() ? "" : value.ToString());
      } catch (const Error& e) {
        planned = "error " + std::to_string(e.number());
        if (!resolved.empty()) {
          EXPECT_TRUE(Has(e.description(), "Resolved Function - " + resolved + " \r\n"))
              << formula << ": " << e.description();
        }
      }
      EXPECT_EQ(planned, written) << formula << " written out as " << resolved;
      ++compared;
    }
  }
  EXPECT_EQ(compared, formulas.size() * names.size() * 3);
}

// One formula on records of two types whose field of the same name stands
// elsewhere and has another type: each record is read by its own type.
TEST_F(ScriptHostTest, AFormulaOnRecordsOfTwoTypesReadsEachByItsOwnType) {
  auto twoTypes = test::MakeFactory(
      "<TRANSFORM id=\"T1\" parentid=\"\" type=\"1\"><OPTIONS/><TRANSFORMDETAIL><RECORDS>"
      "<RECORD id=\"ORDER\" parentid=\"\" hashcode=\"1\"><FIELD name=\"Code\" type=\"3\"/>"
      "<FIELD name=\"Other\" type=\"3\"/></RECORD>"
      "<RECORD id=\"LINE\" parentid=\"ORDER\" hashcode=\"2\"><FIELD name=\"Qty\" type=\"1\"/>"
      "<FIELD name=\"Note\" type=\"3\"/><FIELD name=\"Code\" type=\"1\"/></RECORD>"
      "</RECORDS></TRANSFORMDETAIL></TRANSFORM>");
  Ref<Transaction> head = twoTypes->CreateTransaction("ORDER");
  Ref<Transaction> line = twoTypes->CreateTransaction("LINE");
  head->SetFieldValue("Code", Variant("007"));
  line->SetFieldValue("Qty", Variant(2));
  line->SetFieldValue("Code", Variant("007"));
  for (int round = 0; round < 3; ++round) {
    // A string "007" doubled is a Double 14 either way; its type tells:
    // the string stays text when joined, the number loses its zeros.
    EXPECT_EQ(Host().Evaluate("%Code & \"|\" & TypeName(%Code)", head.get(), "F").ToString(), "007|String");
    EXPECT_EQ(Host().Evaluate("%Code & \"|\" & TypeName(%Code)", line.get(), "F").ToString(), "7|Integer");
  }
  // Unset on the next record of the first type: written out as "".
  Ref<Transaction> other = twoTypes->CreateTransaction("ORDER");
  other->SetFieldValue("Other", Variant("x"));
  EXPECT_EQ(Host().Evaluate("%Code & \"|\" & TypeName(%Code)", other.get(), "F").ToString(), "|String");
}

// A failure's report shows the values the formula ran with, also when the
// formula changed its record before it failed.
TEST_F(ScriptHostTest, AFailureShowsTheValuesTheFormulaRanWith) {
  order->SetFieldValue("Name", Variant("Smith"));
  const std::string formula = "SetFieldNull(\"Name\") & %Name & 1/0";
  const std::string resolved = Resolve(formula);
  for (int round = 0; round < 2; ++round) {
    order->SetFieldValue("Name", Variant("Smith"));
    const Error error = CatchError([&] { Eval(formula); });
    EXPECT_EQ(error.number(), 11);
    EXPECT_TRUE(Has(error.description(), "Resolved Function - " + resolved + " \r\n")) << error.description();
  }
  // Without an engine the report still shows the written-out text.
  order->SetFieldValue("Name", Variant("Smith"));
  Host().CloseWrapper();
  EXPECT_TRUE(Has(CatchError([&] { Eval("%Name & 1"); }).description(), "Resolved Function - \"Smith\" & 1"));
}

// More formulas than the host keeps parsed: each still gives its value,
// also when it comes round again.
TEST_F(ScriptHostTest, ManyDifferentFormulasEachKeepTheirMeaning) {
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 1500; ++i) {
      ASSERT_EQ(Eval("%A + " + std::to_string(i)).ToDouble(), 1 + i) << i;
    }
  }
}

TEST_F(ScriptHostTest, PercentEscapesAndValuesAreNotScannedAgain) {
  EXPECT_EQ(Resolve("%%Name"), "\"%Name\"");
  EXPECT_EQ(Eval("%%Name & \"!\"").ToString(), "%Name!");
  order->SetFieldValue("Name", Variant("50%A off"));
  EXPECT_EQ(Resolve("%Name & %A"), "\"50%A off\" & 1");
}

TEST_F(ScriptHostTest, EnclosedNamesAndWhatTheScanSkips) {
  order->SetFieldValue("Full Name", Variant("Ann Lee"));
  EXPECT_EQ(Resolve("Len(%[Full Name])"), "Len(\"Ann Lee\")");
  EXPECT_EQ(Resolve("%A %B"), "1 2");
  EXPECT_EQ(Resolve("%[A] + %[B]"), "1 + 2");
  // Behind an enclosed reference two characters are skipped, behind a bare
  // one the terminator: a reference standing there is not seen.
  EXPECT_EQ(Resolve("%[A]%[B]"), "1%[B]");
  EXPECT_EQ(Resolve("%[A]+%[B]"), "1+%[B]");
  EXPECT_EQ(Resolve("%A+%B"), "1+2");
  EXPECT_EQ(Resolve("%A+(%B)"), "1+(2)");
  // The scan ends when its position reaches the last character.
  EXPECT_EQ(Resolve("%A %"), "1 %");
  // A bare name runs to a terminator: '.' and '%' are part of it.
  EXPECT_EQ(CatchError([&] { Resolve("%A.x"); }).number(), 8103);
}

TEST_F(ScriptHostTest, SeveralValuesJoinWithoutTheFirst) {
  for (const char* tag : {"a", "b", "c"}) order->SetFieldValue("Tags", Variant(tag));
  EXPECT_EQ(Resolve("%Tags"), "\"bc\"");
  for (int32_t n : {1, 2, 3}) order->SetFieldValue("Counts", Variant(n));
  EXPECT_EQ(Resolve("%Counts + 1"), "23 + 1");
  EXPECT_EQ(Eval("%Counts + 1").ToLong(), 24);
}

TEST_F(ScriptHostTest, FailedSubstitutionsReachTheJobInsideBothTemplates) {
  const Error unknown = CatchError([&] { Resolve("%Nope + 1"); });
  EXPECT_EQ(unknown.number(), 8103);
  EXPECT_TRUE(Has(unknown.description(),
                  "Error resolving formula. Field [Nope] does not exist in transaction [ORDER].\r\n"))
      << unknown.description();

  const Error inEvaluate = CatchError([&] { Eval("%A + %Nope", "Total"); });
  EXPECT_EQ(inEvaluate.number(), 8103);
  // What the audit log shows of it: both templates, one around the other.
  EXPECT_EQ(ShortDescription(inEvaluate),
            "Error whilst evaluating field [Total] on transaction type [ORDER]. \r\n"
            "Resolved Function - %A + %Nope \r\n"
            "Error - Error resolving formula. Field [Nope] does not exist in transaction [ORDER].");

  const Error unclosed = CatchError([&] { Eval("%[Name + 1", "Total"); });
  EXPECT_EQ(unclosed.number(), vbWrapper::kUnenclosedFieldName);
  EXPECT_TRUE(Has(unclosed.description(),
                  "Error whilst evaluating field [Total] on transaction type [ORDER]. \r\n"
                  "Resolved Function - %[Name + 1 \r\n"
                  "Error - Error resolving formula. Unenclosed field name.\r\n"))
      << unclosed.description();

  const Error trailing = CatchError([&] { Eval("100%"); });
  EXPECT_NE(trailing.number(), 0);
  EXPECT_TRUE(Has(trailing.description(), "Error - Error resolving formula.")) << trailing.description();
  EXPECT_TRUE(Has(CatchError([&] { Resolve("%"); }).description(), "Error resolving formula."));
}

TEST_F(ScriptHostTest, EngineFailuresCarryTheEnginesDetails) {
  const Error error = CatchError([&] { Eval("%A +* 2", "Total"); });
  EXPECT_TRUE(Has(error.description(), "Resolved Function - 1 +* 2 \r\nError - ")) << error.description();
  EXPECT_TRUE(Has(error.description(), "Source Line: 1 +* 2\r\n")) << error.description();
  EXPECT_TRUE(Has(error.description(), " Line=1 Pos=")) << error.description();

  // Wrapped code that does not compile fails in AddCode, with its line.
  const Error wrapped = CatchError([&] { Eval("x = (1 +\nx", "Total"); });
  EXPECT_TRUE(Has(wrapped.description(), "Resolved Function - x = (1 +\nx \r\n")) << wrapped.description();
  EXPECT_TRUE(Has(wrapped.description(), "Source Line: x = (1 +")) << wrapped.description();
  EXPECT_TRUE(Has(wrapped.description(), " Line=3 Pos=")) << wrapped.description();

  const Error runtime = CatchError([&] { Eval("1 / 0"); });
  EXPECT_EQ(runtime.number(), 11);
  EXPECT_TRUE(Has(runtime.description(), "Error - Division by zero")) << runtime.description();
}

// --- Code ----------------------------------------------------------------------------------

TEST_F(ScriptHostTest, MultiLineCodeBecomesAFunctionNamedAfterTheField) {
  EXPECT_FALSE(Host().CodeNeedsWrapper("1 + 2"));
  EXPECT_TRUE(Host().CodeNeedsWrapper("x = 1\nx"));
  EXPECT_EQ(Eval("x = %B\nx * 10", "My Field").ToLong(), 20);
  // The function stays callable by later expressions of the transform.
  EXPECT_EQ(Host().SimpleEvaluate(Variant("My_Field + 1")).ToLong(), 21);

  std::string name = "Net Total";
  Host().AddCode(name, "y = 2\ny * 3");
  EXPECT_EQ(name, "Net_Total");
  EXPECT_EQ(Host().SimpleEvaluate(Variant("Net_Total")).ToLong(), 6);
}

TEST_F(ScriptHostTest, TheWrapperPrefixesTheFirstLineOfTheLastStatement) {
  vbWrapper& host = Host();
  EXPECT_EQ(host.CreateCodeWrapper("F", "x = 1\nx\n"),
            "Function F()\r\n\r\nx = 1\r\nF = x\r\n\r\nEnd Function\r\n\r\n");
  EXPECT_EQ(host.CreateCodeWrapper("F", "t = 5\nt + _\n  1\n  \n"),
            "Function F()\r\n\r\nt = 5\r\nF = t + _\r\n  1\r\n  \r\n\r\nEnd Function\r\n\r\n");
  // Carriage returns are not blanks: the last empty line is the result line.
  EXPECT_EQ(host.CreateCodeWrapper("F", "x = 1\r\nx\r\n\r\n"),
            "Function F()\r\n\r\nx = 1\r\r\nx\r\r\nF = \r\r\n\r\nEnd Function\r\n\r\n");
  std::string name = "G";
  host.AddCode(name, "t = 5\nt + _\n  1\n\n");
  EXPECT_EQ(host.SimpleEvaluate(Variant("G")).ToLong(), 6);
}

TEST_F(ScriptHostTest, TwoWrappersDoNotSeeEachOthersCode) {
  vbWrapper other;
  other.Initialize("T2", false, nullptr, 60);
  std::string name = "OnlyHere";
  Host().AddCode(name, "v = 7\nv");
  EXPECT_EQ(Host().SimpleEvaluate(Variant("OnlyHere")).ToLong(), 7);
  // To the other engine the name is an undeclared, empty variable.
  EXPECT_TRUE(other.SimpleEvaluate(Variant("IsEmpty(OnlyHere)")).ToBool());
  EXPECT_EQ(other.SimpleEvaluate(Variant("TypeName(OnlyHere)")).ToString(), "Empty");
}

TEST_F(ScriptHostTest, ALongRunningScriptFailsAtTheTimeOut) {
  env.SetFunctionLibrary({"Function Spin()\nDo\nLoop\nEnd Function"});
  vbWrapper host;
  host.Initialize("T1", false, nullptr, 1);
  const Error error = CatchError([&] { host.Evaluate("Spin()", order.get(), "F"); });
  EXPECT_EQ(error.number(), static_cast<int32_t>(0x80004004)) << error.description();
  // The wrapper is still usable afterwards.
  EXPECT_EQ(host.SimpleEvaluate(Variant("1 + 1")).ToLong(), 2);
}

// --- The function library ----------------------------------------------------------------------

TEST_F(ScriptHostTest, TheLibraryIsCallableByBareName) {
  env.SetFunctionLibrary({"Function Twice(x)\n  Twice = x * 2\nEnd Function",
                          "Const Greeting = \"hello\"",
                          "Function Shout(s)\n  Shout = UCase(s) & \"!\"\nEnd Function"});
  EXPECT_EQ(Eval("Twice(%B)").ToLong(), 4);
  EXPECT_EQ(Eval("Shout(Greeting)").ToString(), "HELLO!");
  EXPECT_EQ(Eval("IIf(%A > %B, \"a\", \"b\")").ToString(), "b");
  EXPECT_EQ(Eval("TypeName(objFunctions)").ToString(), "Functions");
  // The record being evaluated is the library's current record.
  ASSERT_NE(Host().FunctionLibrary(), nullptr);
  EXPECT_EQ(Host().FunctionLibrary()->CurrentTransaction().get(), order.get());
}

TEST_F(ScriptHostTest, ABrokenOrMissingLibraryStopsTheWrapper) {
  env.SetFunctionLibrary({"Function Broken(\nEnd Function"});
  vbWrapper broken;
  const Error syntax = CatchError([&] { broken.Initialize("T1", false, nullptr, 60); });
  EXPECT_TRUE(Has(syntax.description(), "Source Line: ")) << syntax.description();

  std::filesystem::remove(env.FunctionLibraryPath());
  vbWrapper missing;
  const Error error = CatchError([&] { missing.Initialize("T1", false, nullptr, 60); });
  EXPECT_EQ(error.number(), 7705);
  EXPECT_TRUE(Has(error.description(), "Could not open file [" + env.FunctionLibraryPath().string() + "]"))
      << error.description();
}

TEST_F(ScriptHostTest, AfterCloseTheWrapperRefusesWork) {
  Host().CloseWrapper();
  EXPECT_EQ(Host().FunctionLibrary(), nullptr);
  EXPECT_EQ(CatchError([&] { Host().SimpleEvaluate(Variant("1")); }).number(), 91);
  Host().CloseWrapper();
}

TEST_F(ScriptHostTest, TheVerboseLogShowsEachStep) {
  {
    vbWrapper host;
    host.Initialize("T1", true, nullptr, 60);
    EXPECT_EQ(host.Evaluate("%A + 1", order.get(), "F").ToLong(), 2);
    // Each line is in the file while the wrapper still runs.
    const std::string live = test::ReadFileText(env.DebugPath() / " ");
    EXPECT_NE(live.find(std::string("P\0O\0S\0T\0E\0V\0A\0L", 15)), std::string::npos);
  }
  {
    // A later wrapper appends to the same log.
    vbWrapper host;
    host.Initialize("T2", true, nullptr, 60);
    EXPECT_EQ(host.Evaluate("%B * 3", order.get(), "F").ToLong(), 6);
    // Values without text log as empty text and do not disturb the result.
    EXPECT_TRUE(host.Evaluate("Null", order.get(), "F").IsNull());
    EXPECT_TRUE(host.Evaluate("Array(1, 2)", order.get(), "F").IsArray());
  }
  // The log is UTF-16 text with one byte-order mark; its content here is ASCII.
  std::string bytes = test::ReadFileText(env.DebugPath() / " ");
  ASSERT_GE(bytes.size(), 2u);
  EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE");
  EXPECT_EQ(bytes.find("\xFF\xFE", 2), std::string::npos);
  std::string text;
  for (size_t i = 2; i + 1 < bytes.size(); i += 2) text.push_back(bytes[i]);
  EXPECT_TRUE(Has(text, "\tPRERESOLUTION:\t%A + 1\r\n")) << text;
  EXPECT_TRUE(Has(text, "\tPOSTRESOLUTION:\t1 + 1\r\n")) << text;
  EXPECT_TRUE(Has(text, "\tPOSTEVALUATION:\t2\r\n")) << text;
  EXPECT_LT(text.find("PRERESOLUTION"), text.find("POSTEVALUATION"));
  EXPECT_TRUE(Has(text, "\tPOSTRESOLUTION:\t2 * 3\r\n")) << text;
  EXPECT_LT(text.find("POSTEVALUATION:\t2"), text.find("PRERESOLUTION:\t%B"));
  EXPECT_TRUE(Has(text, "\tPOSTEVALUATION:\t\r\n")) << text;
  // Each line starts with the date and time.
  EXPECT_EQ(text.find('\t'), std::string("yyyy-mm-dd hh:mm:ss").size());
}

// Without room for the log, or without the debug folder at all, the job
// runs on unlogged and the audit log says why.
TEST_F(ScriptHostTest, WithoutADebugFolderTheVerboseLogIsTurnedOff) {
  std::filesystem::remove_all(env.DebugPath());
  test::RecordingEvent event;
  vbWrapper host;
  host.Initialize("T1", true, &event, 60);
  EXPECT_EQ(host.Evaluate("%A + 1", order.get(), "F").ToLong(), 2);
  ASSERT_EQ(event.messages.size(), 1u);
  EXPECT_EQ(event.messages[0].ReasonCode, "-1");
  EXPECT_EQ(event.messages[0].Reason, "Logging turned off due to insufficient disk space.");
  EXPECT_FALSE(std::filesystem::exists(env.DebugPath() / " "));
}

// --- Hosts without a job ------------------------------------------------------------------------

TEST_F(ScriptHostTest, TheSimpleWrapperEvaluatesToText) {
  env.SetFunctionLibrary({"Function Twice(x)\n  Twice = x * 2\nEnd Function"});
  SimpleVBWrapper simple;
  EXPECT_EQ(CatchError([&] { simple.SimpleEvaluate("1"); }).number(), 91);
  simple.Initialise();
  simple.Initialise();
  EXPECT_EQ(simple.SimpleEvaluate("Twice(21)"), "42");
  EXPECT_TRUE(simple.CodeNeedsWrapper("a = 1\na"));
  EXPECT_EQ(simple.AddCode("Two Lines", "a = 4\na + Twice(1)"), "Two_Lines");
  EXPECT_EQ(simple.SimpleEvaluate("Two_Lines"), "6");
}

TEST_F(ScriptHostTest, FileNamesAreEvaluatedByTheScriptHost) {
  env.SetFunctionLibrary({"Function Stamp()\n  Stamp = \"2024\"\nEnd Function"});
  test::TempDir out;
  const std::string folder = out.path().string();
  order->SetFieldValue("Name", Variant("Smith"));
  FileSystemWrapper files;
  EXPECT_EQ(files.GenerateFileName("\"orders_\" & %Name & \".csv\"", true, folder, false, order.get()),
            FileSystemWrapper::BuildPath(folder, "orders_Smith.csv"));
  EXPECT_EQ(files.GenerateFileName("\"run_\" & Stamp() & \".txt\"", true, folder, false),
            FileSystemWrapper::BuildPath(folder, "run_2024.txt"));
  EXPECT_EQ(CatchError([&] { files.GenerateFileName("%Name", true, folder, false); }).number(),
            FileSystemWrapper::kTokensNotAllowed);
  // A name computed in several lines leaves the library's own FileName usable.
  EXPECT_EQ(files.GenerateFileName("n = UCase(%Name)\n\"x_\" & n & \".csv\"", true, folder, false, order.get()),
            FileSystemWrapper::BuildPath(folder, "x_SMITH.csv"));
  EXPECT_EQ(files.GenerateFileName("FileName(\"/a/b/c.txt\")", true, folder, false, order.get()),
            FileSystemWrapper::BuildPath(folder, "c.txt"));
  const Error failed = CatchError([&] { files.GenerateFileName("\"a\" &", true, folder, false); });
  EXPECT_TRUE(Has(failed.description(), "Error whilst evaluating the filename.")) << failed.description();
}

// --- Engine details -----------------------------------------------------------------------------

TEST(EEScriptControlTest, TheCaretStandsUnderTheFailingColumn) {
  vbs::Engine engine;
  EXPECT_EQ(EEScriptControl().Extract(engine), "");
  EXPECT_ANY_THROW(engine.AddCode("x = 1\n\tx = (2 +\n"));
  const vbs::EngineError& error = engine.Error();
  ASSERT_EQ(error.Line(), 2);
  ASSERT_GT(error.Column(), 0);
  const std::string text = EEScriptControl().Extract(engine);
  const std::string expected = "Description: " + error.Description() + "\r\n" + "Source Line:  x = (2 +\r\n" + "." +
                               std::string(12 + error.Column() - 1, ' ') + "^\r\n" + " Line=2 Pos=" +
                               std::to_string(error.Column()) + "\r\n";
  EXPECT_EQ(text, expected);
  // The caret's line is as wide as the label and the column before it.
  const size_t caretLine = text.find("\r\n.") + 2;
  const size_t caret = text.find('^');
  EXPECT_EQ(caret - caretLine, 13 + static_cast<size_t>(error.Column()) - 1);
}

TEST(EEScriptControlTest, ARuntimeErrorInCodeHasItsLine) {
  vbs::Engine engine;
  EXPECT_ANY_THROW(engine.AddCode("a = 1\nSub S()\n\tb = a / 0\nEnd Sub\nS\n"));
  ASSERT_EQ(engine.Error().Column(), 2);
  EXPECT_EQ(EEScriptControl().Extract(engine),
            "Description: Division by zero\r\n"
            "Source Line:  b = a / 0\r\n"
            ".             ^\r\n"
            " Line=3 Pos=2\r\n");
}

}  // namespace
}  // namespace tessel
