#include "audit/HuntErr.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <future>
#include <regex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <string>
#include <vector>

#include "audit/ExceptionState.h"
#include "audit/IErrorConnection.h"

namespace tessel {
namespace {

// Every test starts from a clean per-thread record.
class HuntErrTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ErrClear();
    ErrCollectedMessages();
  }
};

Error CatchError(const std::function<void()>& body) {
  try {
    body();
  } catch (const Error& e) {
    return e;
  }
  ADD_FAILURE() << "no error was raised";
  return Error(0, "");
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find("\r\n", start);
    if (end == std::string::npos) {
      if (start < text.size()) lines.push_back(text.substr(start));
      break;
    }
    lines.push_back(text.substr(start, end - start));
    start = end + 2;
  }
  return lines;
}

std::vector<std::string> CallStackLines(const std::string& trace) {
  std::vector<std::string> out;
  for (const std::string& line : Lines(trace)) {
    if (line.rfind("  Call Stack: ", 0) == 0) out.push_back(line);
  }
  return out;
}

// --- Check -------------------------------------------------------------------------

TEST_F(HuntErrTest, CheckRaisesNumberedMessageWithArguments) {
  EXPECT_NO_THROW(Check(true, 7703, "[%1] could not be found in document.", Variant("x")));
  Error e = CatchError([] {
    Check(false, 7703, "[%1] could not be found in document.", Variant("/DATA/RECORD"), "help.chm", 12);
  });
  EXPECT_EQ(e.number(), 7703);
  EXPECT_EQ(e.description(), "[/DATA/RECORD] could not be found in document.");
  EXPECT_EQ(e.source(), "HuntERR.Check");
  EXPECT_EQ(e.helpFile(), "help.chm");
  EXPECT_EQ(e.helpContext(), "12");
}

TEST_F(HuntErrTest, CheckSubstitutionCorners) {
  // An unused placeholder and a bare percent stay as they are.
  EXPECT_EQ(BuildCheckMessage("%1 of %2 at 100%", {Variant("one")}), "one of %2 at 100%");
  // Every occurrence is replaced; values are not searched for placeholders.
  EXPECT_EQ(BuildCheckMessage("%1-%2-%1", {Variant("%2"), Variant("b")}), "%2-b-%2");
  // "||" is a line break in the template only.
  EXPECT_EQ(BuildCheckMessage("a||%1", {Variant("x||y")}), "a\r\nx||y");
  // Without arguments nothing is substituted.
  EXPECT_EQ(BuildCheckMessage("%1||%", {}), "%1\r\n%");
  // One array argument stands for its elements.
  EXPECT_EQ(BuildCheckMessage("%2/%1", {Variant::FromVector({Variant("a"), Variant("b")})}), "b/a");
  // A value that cannot become text gives empty text.
  EXPECT_EQ(BuildCheckMessage("[%1][%2]", {Variant::Null(), Variant(int32_t{7})}), "[][7]");
}

TEST_F(HuntErrTest, CheckWithNumberZeroCollectsMessages) {
  Check(false, 0, "first %1", Variant("a"));
  Check(true, 0, "never");
  Check(false, 0, "second");
  EXPECT_EQ(ErrCollectedMessages(), "first a\r\nsecond");
  EXPECT_EQ(ErrCollectedMessages(), "");
}

// --- ErrorIn traces ---------------------------------------------------------------------

void Deepest(const std::string& path) {
  try {
    Check(false, 7703, "[%1] could not be found in document.", Variant(path));
  } catch (...) {
    ErrorInRethrow("Store.Deepest(sPath)", {Variant(path)});
  }
}

void Middle(int32_t count) {
  try {
    Deepest("/DATA");
  } catch (...) {
    ErrorInRethrow("Store.Middle(lCount)", {Variant(count)});
  }
}

void Top() {
  try {
    Middle(3);
  } catch (...) {
    ErrorInRethrow("Store.Top()");
  }
}

TEST_F(HuntErrTest, ThreeDeepErrorKeepsFirstNumberAndStacksFramesDeepestFirst) {
  Error e = CatchError(Top);
  EXPECT_EQ(e.number(), 7703);
  EXPECT_EQ(e.source(), "HuntERR.ErrorIn");
  std::vector<std::string> frames = CallStackLines(e.description());
  ASSERT_EQ(frames.size(), 3u);
  EXPECT_EQ(frames[0].rfind("  Call Stack: Store.Deepest(sPath='/DATA') -", 0), 0u) << frames[0];
  EXPECT_EQ(frames[1].rfind("  Call Stack: Store.Middle(lCount=3) -", 0), 0u) << frames[1];
  EXPECT_EQ(frames[2].rfind("  Call Stack: Store.Top() -", 0), 0u) << frames[2];
  for (const std::string& frame : frames) EXPECT_EQ(frame.size(), 100u);

  // One header, written by the first frame.
  const std::string& d = e.description();
  EXPECT_EQ(d.find("Time='"), d.rfind("Time='"));
  EXPECT_EQ(d.rfind("[/DATA] could not be found in document. \r\n  Time='", 0), 0u);
  EXPECT_NE(d.find("  Method: Store.Deepest \r\n"), std::string::npos);
  EXPECT_NE(d.find("  Source: HuntERR.Check \r\n"), std::string::npos);
  EXPECT_NE(d.find("  Description: [/DATA] could not be found in document.\r\n"), std::string::npos);

  EXPECT_EQ(ShortDescription(e), "[/DATA] could not be found in document.");
  EXPECT_EQ(TraceFreeDescription(e.source(), e.description()),
            "[/DATA] could not be found in document.");
  EXPECT_EQ(ShortDescriptionBeforeTrace(e.description()), "[/DATA] could not be found in document.");
}

TEST_F(HuntErrTest, HeaderFieldsOfTheFirstFrame) {
  Error e = CatchError([] {
    try {
      throw Error(7703, "gone");
    } catch (...) {
      ErrorInRethrow("A.B()");
    }
  });
  char host[256] = {};
  gethostname(host, sizeof(host) - 1);
  const std::string& d = e.description();
  std::regex header(
      "gone \r\n  Time='\\d\\d/\\d\\d/\\d\\d \\d\\d:\\d\\d:\\d\\d' App='tessel:\\d+\\.\\d+\\.\\d+' "
      "ADO-version='\\?' Computer='([^']*)' \r\n");
  std::smatch m;
  ASSERT_TRUE(std::regex_search(d, m, header)) << d;
  EXPECT_EQ(m[1].str(), host);
  EXPECT_NE(d.find("  Number: 7703 = &H1E17 = vbObjectError + 2147229207 = ERRMAP_APP_FIRST + "
                   "2147224009 \r\n"),
            std::string::npos)
      << d;
}

TEST_F(HuntErrTest, LostErrorBecomesTheGeneralError) {
  Error e = CatchError([] { ErrorIn("Job.Run()", {}, kErrStandard); });
  EXPECT_EQ(e.number(), Error::kGeneral);
  EXPECT_EQ(e.source(), "HuntERR.ErrorIn");
  EXPECT_NE(e.description().find(std::string(kLostErrorMessage)), std::string::npos);
  EXPECT_NE(e.description().find("= ERR_GENERAL"), std::string::npos);
  EXPECT_NE(e.description().find("&H8004144E = vbObjectError + 5198 = ERRMAP_APP_FIRST + 0 "),
            std::string::npos)
      << e.description();
}

TEST_F(HuntErrTest, ForeignExceptionsGetTheGeneralNumber) {
  Error e = CatchError([] {
    try {
      throw std::runtime_error("disk on fire");
    } catch (...) {
      ErrorInRethrow("Writer.Flush()");
    }
  });
  EXPECT_EQ(e.number(), Error::kGeneral);
  EXPECT_EQ(ShortDescription(e), "disk on fire");
  EXPECT_NE(e.description().find("  Source: std::runtime_error \r\n"), std::string::npos);

  Error unknown = CatchError([] {
    try {
      throw 42;
    } catch (...) {
      ErrorInRethrow("Writer.Flush()");
    }
  });
  EXPECT_EQ(unknown.number(), Error::kGeneral);
}

TEST_F(HuntErrTest, SystemErrorReportsTheOperatingSystemCode) {
  Error e = CatchError([] {
    try {
      throw std::system_error(ENOENT, std::generic_category(), "open a.txt");
    } catch (...) {
      ErrorInRethrow("FileSystemWrapper.OpenFile(sPath)", {Variant("a.txt")});
    }
  });
  EXPECT_EQ(e.number(), Error::kGeneral);
  EXPECT_NE(e.description().find("\r\n  API Error: (" + std::to_string(ENOENT) + ") " +
                                 std::strerror(ENOENT) + "\r\n  Call Stack: "),
            std::string::npos)
      << e.description();
}

TEST_F(HuntErrTest, EachThreadHasItsOwnRecord) {
  // One thread keeps an error preserved while another raises and reports its
  // own; neither sees the other's.
  std::promise<void> preserved;
  std::promise<void> reported;
  int32_t otherNumber = 0;
  std::thread other([&] {
    preserved.get_future().wait();
    Check(false, 0, "other thread message");
    try {
      throw Error(8100, "other");
    } catch (...) {
      try {
        ErrorInRethrow("Other.Run()");
      } catch (const Error& e) {
        otherNumber = e.number();
      }
    }
    reported.set_value();
  });
  try {
    throw Error(8200, "mine");
  } catch (...) {
    ErrPreserve();
    preserved.set_value();
    reported.get_future().wait();
    Error e = CatchError([] { ErrorInRethrow("Mine.Run()"); });
    EXPECT_EQ(e.number(), 8200);
  }
  other.join();
  EXPECT_EQ(otherNumber, 8100);
  EXPECT_EQ(ErrCollectedMessages(), "");
}

TEST_F(HuntErrTest, BypassRangePassesWithoutTrace) {
  const int32_t expected = static_cast<int32_t>(0x80041070);
  Error e = CatchError([&] {
    try {
      throw Error(expected, "end of data", "Reader");
    } catch (...) {
      ErrorInRethrow("Reader.Next()");
    }
  });
  EXPECT_EQ(e.number(), expected);
  EXPECT_EQ(e.description(), "end of data");
  EXPECT_EQ(e.source(), "Reader");

  // The first number of the range is bypassed; the one below it is traced.
  for (int32_t number : {static_cast<int32_t>(0x80041065), static_cast<int32_t>(0x80041064)}) {
    Error edge = CatchError([&] {
      try {
        throw Error(number, "x");
      } catch (...) {
        ErrorInRethrow("Reader.Next()");
      }
    });
    EXPECT_EQ(edge.source() == "HuntERR.ErrorIn", number == static_cast<int32_t>(0x80041064));
  }
}

TEST_F(HuntErrTest, ParameterTextForms) {
  std::string long41(41, 'a');
  std::string ok38(38, 'b');
  Error e = CatchError([&] {
    try {
      throw Error(7000, "x");
    } catch (...) {
      ErrorInRethrow("M.F(sLong, sShort, vEmpty, vNull, bFlag, dValue, vArray, oObj)",
                     {Variant(long41), Variant(ok38), Variant(), Variant::Null(), Variant(true),
                      Variant(2.5), Variant::FromVector({Variant(1)}), Variant::Nothing()});
    }
  });
  std::vector<std::string> frames = CallStackLines(e.description());
  ASSERT_EQ(frames.size(), 1u);
  EXPECT_NE(frames[0].find("M.F(sLong={Text}, sShort='" + ok38 +
                           "', vEmpty={Empty}, vNull={Null}, bFlag=True, dValue=2.5, "
                           "vArray={Array}, oObj={Nothing})"),
            std::string::npos)
      << frames[0];
  EXPECT_NE(e.description().find("\r\n    Value Of sLong:\r\n      '" + long41 + "'\r\n"),
            std::string::npos)
      << e.description();
}

TEST_F(HuntErrTest, ParametersAndValuesPairByPosition) {
  Error e = CatchError([] {
    try {
      throw Error(7000, "x");
    } catch (...) {
      ErrorInRethrow("M.F(a, b, c)", {Variant("1")});
    }
  });
  EXPECT_NE(e.description().find("  Call Stack: M.F(a='1') "), std::string::npos);
  Error extra = CatchError([] {
    try {
      throw Error(7000, "x");
    } catch (...) {
      ErrorInRethrow("M.G(a)", {Variant("1"), Variant(int32_t{2})});
    }
  });
  EXPECT_NE(extra.description().find("  Call Stack: M.G(a='1', 2) "), std::string::npos);
}

TEST_F(HuntErrTest, LongXmlValueIsLaidOutByLevel) {
  std::string xml = "<DATA><RECORDS><RECORD id=\"1\"/><RECORD>text</RECORD></RECORDS></DATA>";
  Error e = CatchError([&] {
    try {
      throw Error(7000, "x");
    } catch (...) {
      ErrorInRethrow("M.F(xmlDoc)", {Variant(xml)});
    }
  });
  EXPECT_NE(e.description().find("    Value Of xmlDoc:\r\n"
                                 "      '<DATA>\r\n"
                                 "        <RECORDS>\r\n"
                                 "          <RECORD id=\"1\"/>\r\n"
                                 "          <RECORD>text\r\n"
                                 "          </RECORD>\r\n"
                                 "        </RECORDS>\r\n"
                                 "      </DATA>'\r\n"),
            std::string::npos)
      << e.description();
}

TEST_F(HuntErrTest, SwallowingHandlerKeepsErrorReadable) {
  std::string trace;
  try {
    Check(false, 9500, "bad %1", Variant("stack"));
  } catch (...) {
    trace = ErrorIn("AuditLogger.WriteAuditLog()", {}, kErrSwallow);
    EXPECT_EQ(ErrNumber(), 9500);
    EXPECT_EQ(ErrSource(), "HuntERR.ErrorIn");
  }
  EXPECT_EQ(CallStackLines(trace).size(), 1u);
  EXPECT_EQ(ErrNumber(), 9500);
  EXPECT_EQ(ErrDescription(), trace);
  EXPECT_EQ(ErrShortDescription(), "bad stack");
  EXPECT_EQ(ErrTraceFreeDescription(), "bad stack");
  ErrClear();
  EXPECT_EQ(ErrNumber(), 0);
}

TEST_F(HuntErrTest, ShortDescriptionForms) {
  // Outside a trace the first line is the reason.
  EXPECT_EQ(ShortDescription("Reader", "first\r\nsecond"), "first");
  EXPECT_EQ(ShortDescription("Reader", "  single  "), "single");
  // A multi-line message in a trace stays whole.
  EXPECT_EQ(ShortDescription("HuntERR.ErrorIn", "a\r\nb \r\n  Time='x' App"), "a\r\nb");
  EXPECT_EQ(ShortDescriptionBeforeTrace("Bad value  Call Stack: X"), "Bad value");
  EXPECT_EQ(ShortDescriptionBeforeTrace("Bad value"), "Bad value");
}

TEST_F(HuntErrTest, ExceptionStateRoundTrip) {
  try {
    Check(false, 7704, "XML Load Failed");
  } catch (...) {
    ErrPreserve();
    ExceptionState state = CaptureExceptionState();
    EXPECT_EQ(state.ErrNumber(), 7704);
    EXPECT_EQ(state.ErrSource(), "HuntERR.Check");
    EXPECT_TRUE(state.ErrPreserved());

    // Logging handles an error of its own in between; its handler consumes
    // the preserved error and leaves the record unpreserved.
    try {
      throw Error(9600, "mail server down");
    } catch (...) {
      ErrorIn("Mailer.Send()", {}, kErrSwallow);
    }
    EXPECT_FALSE(CaptureExceptionState().ErrPreserved());

    RestoreExceptionState(state);
    EXPECT_EQ(ErrNumber(), 7704);
    EXPECT_EQ(ErrDescription(), "XML Load Failed");
    EXPECT_EQ(ErrSource(), "HuntERR.Check");

    // The handler reports the pending error as it was, without the logger's frame.
    Error e = CatchError([] { ErrorInRethrow("XMLWrapper.LoadXML(xmlDoc)"); });
    EXPECT_EQ(e.number(), 7704);
    EXPECT_EQ(ShortDescription(e), "XML Load Failed");
    std::vector<std::string> frames = CallStackLines(e.description());
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_NE(frames[0].find("XMLWrapper.LoadXML()"), std::string::npos);
  }
}

TEST_F(HuntErrTest, PreserveKeepsTheFirstError) {
  try {
    throw Error(8001, "first");
  } catch (...) {
    ErrPreserve();
    try {
      throw Error(8002, "second");
    } catch (...) {
      ErrPreserve();
      Error e = CatchError([] { ErrorInRethrow("X.Y()"); });
      EXPECT_EQ(e.number(), 8001);
    }
  }
}

// The database layer's connection is not part of this library; a small
// connection stands in for it to show what the handler does with one.
class ScriptedConnection : public IErrorConnection {
 public:
  bool open = true;
  bool failRollback = false;
  int rollbacks = 0;
  int closes = 0;
  bool IsOpen() const override { return open; }
  void RollbackTransaction() override {
    if (failRollback) throw std::runtime_error("no transaction");
    ++rollbacks;
  }
  void Close() override {
    ++closes;
    open = false;
  }
  std::string Version() const override { return "3.45"; }
  std::string ConnectionString() const override { return "file:test.db"; }
};

TEST_F(HuntErrTest, RollbackAndCloseOnTheWayOut) {
  ScriptedConnection connection;
  Error e = CatchError([&] {
    try {
      throw Error(9650, "constraint failed");
    } catch (...) {
      ErrorInRethrow("DBWriter.Write()", {}, kErrStandard | kErrRollback | kErrCloseConnection,
                     &connection);
    }
  });
  EXPECT_EQ(connection.rollbacks, 1);
  EXPECT_EQ(connection.closes, 1);
  const std::string& d = e.description();
  EXPECT_NE(d.find("ADO-version='3.45'"), std::string::npos);
  EXPECT_NE(d.find("  ADO Info: \r\n"), std::string::npos);
  EXPECT_NE(d.find("    Conn. String: 'file:test.db'\r\n"), std::string::npos);
  EXPECT_NE(d.find("    Conn. State:   adStateOpen\r\n"), std::string::npos);
  EXPECT_NE(d.find("    Transaction: Attempt to call RollbackTrans succeeded\r\n"), std::string::npos);
  EXPECT_NE(d.find("    Connection: Attempt to call Close succeeded\r\n"), std::string::npos);

  // A second handler finds the connection closed, and a failing rollback is
  // reported, not raised.
  Error again = CatchError([&] {
    try {
      throw e;
    } catch (...) {
      ErrorInRethrow("DBWriter.Run()", {}, kErrStandard | kErrRollback, &connection);
    }
  });
  EXPECT_EQ(again.number(), 9650);
  EXPECT_NE(again.description().find("    Transaction: Could not call RollbackTrans: Connection is closed "),
            std::string::npos);
  connection.open = true;
  connection.failRollback = true;
  Error failed = CatchError([&] {
    try {
      throw Error(9650, "x");
    } catch (...) {
      ErrorInRethrow("DBWriter.Run()", {}, kErrStandard | kErrRollback, &connection);
    }
  });
  EXPECT_NE(failed.description().find(
                "    Transaction: Attempt to call RollbackTrans failed with error 'no transaction'"),
            std::string::npos);
}

}  // namespace
}  // namespace tessel
