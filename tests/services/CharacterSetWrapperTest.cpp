#include "tests/support/CatchError.h"
#include "services/CharacterSetWrapper.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/Error.h"

namespace tessel {
namespace {

using test::CatchError;

Bytes B(std::string_view s) { return Bytes(s.begin(), s.end()); }

Bytes Concat(const Bytes& a, const Bytes& b) {
  Bytes r = a;
  r.insert(r.end(), b.begin(), b.end());
  return r;
}

// "Café €5 – naïve"
const std::string kWestern = "Caf\xC3\xA9 \xE2\x82\xAC" "5 \xE2\x80\x93 na\xC3\xAFve";
const std::string kLatin1 = "Caf\xC3\xA9 na\xC3\xAFve \xC3\x9F\xC3\xB8";

TEST(CharacterSetWrapperTest, NamedSetsEncodeToTheirOwnBytes) {
  struct Case {
    const char* name;
    std::string text;
    Bytes bytes;
  };
  const std::vector<Case> cases = {
      {"utf-8", "A\xC3\xA9", {0x41, 0xC3, 0xA9}},
      {"unicode", "A\xC3\xA9", {0x41, 0x00, 0xE9, 0x00}},
      {"utf-16", "A\xC3\xA9", {0x41, 0x00, 0xE9, 0x00}},
      {"utf-16be", "A\xC3\xA9", {0x00, 0x41, 0x00, 0xE9}},
      {"utf-32", "A\xF0\x9F\x98\x80", {0x41, 0, 0, 0, 0x00, 0xF6, 0x01, 0x00}},
      {"utf-32be", "A\xF0\x9F\x98\x80", {0, 0, 0, 0x41, 0x00, 0x01, 0xF6, 0x00}},
      {"windows-1252", "\xE2\x82\xAC\xC3\xA9\xE2\x80\x9C", {0x80, 0xE9, 0x93}},
      {"iso-8859-1", "\xC3\xA9\xC3\xBF", {0xE9, 0xFF}},
      {"UTF-8", "xy", {0x78, 0x79}},
  };
  for (const Case& c : cases) {
    CharacterSetWrapper charset(c.name);
    EXPECT_EQ(charset.ConvertToData(c.text), c.bytes) << c.name;
    EXPECT_EQ(charset.ConvertToText(c.bytes), c.text) << c.name;
  }
}

TEST(CharacterSetWrapperTest, TextSurvivesEveryNamedSet) {
  for (const char* name : {"utf-8", "unicode", "utf-16", "utf-16be", "utf-32", "utf-32be", "windows-1252"}) {
    CharacterSetWrapper charset(name);
    EXPECT_EQ(charset.ConvertToText(charset.ConvertToData(kWestern)), kWestern) << name;
  }
  CharacterSetWrapper latin1("iso-8859-1");
  EXPECT_EQ(latin1.ConvertToText(latin1.ConvertToData(kLatin1)), kLatin1);
}

TEST(CharacterSetWrapperTest, PreamblesOfTheUnicodeSets) {
  EXPECT_EQ(CharacterSetWrapper("utf-8").Preamble(), (Bytes{0xEF, 0xBB, 0xBF}));
  EXPECT_EQ(CharacterSetWrapper("unicode").Preamble(), (Bytes{0xFF, 0xFE}));
  EXPECT_EQ(CharacterSetWrapper("utf-16").Preamble(), (Bytes{0xFF, 0xFE}));
  EXPECT_EQ(CharacterSetWrapper("utf-16be").Preamble(), (Bytes{0xFE, 0xFF}));
  EXPECT_EQ(CharacterSetWrapper("utf-32").Preamble(), (Bytes{0xFF, 0xFE, 0x00, 0x00}));
  EXPECT_EQ(CharacterSetWrapper("utf-32be").Preamble(), (Bytes{0x00, 0x00, 0xFE, 0xFF}));
  EXPECT_TRUE(CharacterSetWrapper("windows-1252").Preamble().empty());
  EXPECT_TRUE(CharacterSetWrapper("autodetect").Preamble().empty());
}

TEST(CharacterSetWrapperTest, ReadingDropsThePreamble) {
  for (const char* name : {"utf-8", "unicode", "utf-16be", "utf-32", "utf-32be"}) {
    CharacterSetWrapper charset(name);
    const Bytes withMark = Concat(charset.Preamble(), charset.ConvertToData(kWestern));
    EXPECT_EQ(charset.ConvertToText(withMark), kWestern) << name;
    EXPECT_TRUE(charset.TextHasPreamble(withMark)) << name;
    EXPECT_EQ(charset.ConvertToText(charset.Preamble()), "") << name;
  }
}

TEST(CharacterSetWrapperTest, ShortInputsGiveEmptyText) {
  CharacterSetWrapper charset("utf-8");
  EXPECT_EQ(charset.ConvertToText(Bytes{}), "");
  EXPECT_EQ(charset.ConvertToText(B("a")), "");
  EXPECT_EQ(charset.ConvertToText(B("ab")), "ab");
  EXPECT_TRUE(charset.ConvertToData("").empty());
}

TEST(CharacterSetWrapperTest, NamesAreTakenAsGivenExceptUtf16) {
  CharacterSetWrapper charset("utf-16");
  EXPECT_EQ(charset.Charset(), "utf-16");
  EXPECT_EQ(charset.ConversionName(), "unicode");
  EXPECT_FALSE(charset.AutoDetect());
  CharacterSetWrapper detect("AutoDetect");
  EXPECT_TRUE(detect.AutoDetect());
}

TEST(CharacterSetWrapperTest, AutodetectFindsTheSetAndKeepsItsName) {
  struct Case {
    Bytes bytes;
    const char* expected;
  };
  CharacterSetWrapper le("unicode"), be("utf-16be"), w("windows-1252"), u32("utf-32");
  const std::string lines = "Hello world, a line\r\nline two\r\n";
  const std::vector<Case> cases = {
      {Concat(le.Preamble(), le.ConvertToData(kWestern)), "utf-16"},
      {Concat(be.Preamble(), be.ConvertToData(kWestern)), "utf-16be"},
      {Concat(u32.Preamble(), u32.ConvertToData(kWestern)), "utf-32"},
      {le.ConvertToData(lines), "utf-16"},
      {be.ConvertToData(lines), "utf-16be"},
      {le.ConvertToData("abc"), "utf-16"},
      {u32.ConvertToData(lines), "utf-32"},
      {B(kWestern), "utf-8"},
      {B("plain ascii\r\n"), "utf-8"},
      {w.ConvertToData("Caf\xC3\xA9 na\xC3\xAFve r\xC3\xA9sum\xC3\xA9\n"), "windows-1252"},
      {w.ConvertToData("Caf\xC3\xA9"), "windows-1252"},
      {w.ConvertToData("He said \xE2\x80\x9Chello\xE2\x80\x9D \xE2\x80\x93 cost \xE2\x82\xAC" "5\n"), "windows-1252"},
  };
  for (const Case& c : cases) {
    CharacterSetWrapper charset("autodetect");
    const std::string text = charset.ConvertToText(c.bytes);
    EXPECT_EQ(charset.Charset(), c.expected);
    EXPECT_FALSE(charset.AutoDetect());
    CharacterSetWrapper named(c.expected);
    EXPECT_EQ(text, named.ConvertToText(c.bytes)) << c.expected;
  }
}

TEST(CharacterSetWrapperTest, AutodetectAnswersEmptyForBinaryData) {
  const Bytes binary = {0x01, 0x02, 0x03, 0xFF, 0xFE, 0x00, 0x10, 0x99, 0x88, 0x00, 0x00, 0x07};
  Bytes noMark(binary.begin() + 5, binary.end());
  EXPECT_EQ(CharacterSetWrapper::DetectCharset(noMark), "");
  CharacterSetWrapper charset("autodetect");
  EXPECT_EQ(CatchError([&] { charset.ConvertToText(noMark); }).number(), 9531);
  EXPECT_EQ(CharacterSetWrapper::DetectCharset(Bytes{}), "");
}

TEST(CharacterSetWrapperTest, WritingUndeterminedRaises9530) {
  CharacterSetWrapper charset("autodetect");
  const Error e = CatchError([&] { charset.ConvertToData("x"); });
  EXPECT_EQ(e.number(), 9530);
  EXPECT_NE(e.description().find("Cannot convert to encoding method [autodetect]"), std::string::npos);
  EXPECT_TRUE(charset.ConvertToData("").empty());
}

TEST(CharacterSetWrapperTest, BadBytesRaise9533WithTheSetName) {
  const Error utf8 = CatchError([] { CharacterSetWrapper("utf-8").ConvertToText(B("ab\xC3(")); });
  EXPECT_EQ(utf8.number(), 9533);
  EXPECT_NE(utf8.description().find("The encoding conversion from encoding [utf-8] failed."), std::string::npos);
  EXPECT_EQ(CatchError([] { CharacterSetWrapper("utf-8").ConvertToText(B("ab\xE2\x82")); }).number(), 9533);
  EXPECT_EQ(CatchError([] { CharacterSetWrapper("utf-8").ConvertToText(B("\xED\xA0\x80xx")); }).number(), 9533);
  EXPECT_EQ(CatchError([] { CharacterSetWrapper("windows-1252").ConvertToText(B("a\x81z")); }).number(), 9533);
  EXPECT_EQ(CatchError([] { CharacterSetWrapper("unicode").ConvertToText(B(std::string_view("a\0b", 3))); }).number(), 9533);
  EXPECT_EQ(CatchError([] { CharacterSetWrapper("shift_jis").ConvertToText(B("ab\x82")); }).number(), 9533);
}

TEST(CharacterSetWrapperTest, SurrogatesInTheWideSets) {
  const std::string grin = "\xF0\x9F\x98\x80";  // U+1F600
  EXPECT_EQ(CharacterSetWrapper("unicode").ConvertToData(grin), (Bytes{0x3D, 0xD8, 0x00, 0xDE}));
  EXPECT_EQ(CharacterSetWrapper("utf-16be").ConvertToData(grin), (Bytes{0xD8, 0x3D, 0xDE, 0x00}));
  EXPECT_EQ(CharacterSetWrapper("unicode").ConvertToText(Bytes{0x3D, 0xD8, 0x00, 0xDE}), grin);
  EXPECT_EQ(CatchError([] { CharacterSetWrapper("unicode").ConvertToText(Bytes{0x3D, 0xD8, 0x41, 0x00}); }).number(),
            9533);
  EXPECT_EQ(CatchError([] { CharacterSetWrapper("unicode").ConvertToText(Bytes{0x00, 0xDC, 0x41, 0x00}); }).number(),
            9533);
  EXPECT_EQ(CatchError([] { CharacterSetWrapper("unicode").ConvertToText(Bytes{0x41, 0x00, 0x3D, 0xD8}); }).number(),
            9533);
  EXPECT_EQ(CatchError([] { CharacterSetWrapper("utf-32").ConvertToText(Bytes{0x00, 0x00, 0x11, 0x00}); }).number(),
            9533);
  EXPECT_EQ(CatchError([] { CharacterSetWrapper("utf-32be").ConvertToText(Bytes{0, 0, 0xD8, 0x00}); }).number(),
            9533);
}

TEST(CharacterSetWrapperTest, UnwritableTextAndUnknownSetsRaise9532) {
  const Error euro = CatchError([] { CharacterSetWrapper("iso-8859-1").ConvertToData("a\xE2\x82\xAC"); });
  EXPECT_EQ(euro.number(), 9532);
  EXPECT_NE(euro.description().find("U+20AC"), std::string::npos);
  EXPECT_EQ(CatchError([] { CharacterSetWrapper("shift_jis").ConvertToData("\xE2\x82\xAC\xF0\x9F\x98\x80"); }).number(),
            9532);
  EXPECT_EQ(CatchError([] { CharacterSetWrapper("utf-8").ConvertToData("bad \xFF"); }).number(), 9532);
  EXPECT_EQ(CatchError([] { CharacterSetWrapper("unicode").ConvertToData("bad \xC3"); }).number(), 9532);
  EXPECT_EQ(CatchError([] { CharacterSetWrapper("no-such-set"); }).number(), 9532);
}

TEST(CharacterSetWrapperTest, MultiByteStatefulAndNonAsciiSingleByteSets) {
  const std::string japanese = "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E abc";  // 日本語 abc
  for (const char* name : {"shift_jis", "euc-jp", "iso-2022-jp", "gb18030"}) {
    CharacterSetWrapper charset(name);
    EXPECT_EQ(charset.ConvertToText(charset.ConvertToData(japanese)), japanese) << name;
  }
  CharacterSetWrapper ebcdic("ibm037");
  EXPECT_EQ(ebcdic.ConvertToData("A1"), (Bytes{0xC1, 0xF1}));
  EXPECT_EQ(ebcdic.ConvertToText(Bytes{0xC1, 0xF1}), "A1");
}

TEST(CharacterSetWrapperTest, StreamingKeepsCharactersCutByChunkEnds) {
  const std::string japanese = "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E abc \xE6\x97\xA5";
  const std::string grin = "\xF0\x9F\x98\x80";
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"utf-8", kWestern + japanese + grin},     {"unicode", kWestern + grin + japanese},
      {"utf-16be", grin + kWestern + grin},      {"utf-32be", kWestern + japanese + grin},  {"windows-1252", kWestern},
      {"shift_jis", japanese},            {"iso-2022-jp", japanese},
  };
  for (const auto& [name, text] : cases) {
    CharacterSetWrapper writer(name);
    const Bytes bytes = writer.ConvertToData(text);
    for (size_t cut = 1; cut < bytes.size(); ++cut) {
      CharacterSetWrapper reader(name);
      std::string out;
      const size_t used = reader.AppendText(Bytes(bytes.begin(), bytes.begin() + cut), false, out);
      EXPECT_LE(used, cut);
      reader.AppendText(Bytes(bytes.begin() + used, bytes.end()), true, out);
      ASSERT_EQ(out, text) << name << " cut at " << cut;
    }
  }
}

TEST(CharacterSetWrapperTest, EmptyNameReadsByDetectionAndWritesUtf8) {
  CharacterSetWrapper reader("");
  CharacterSetWrapper le("unicode");
  EXPECT_EQ(reader.ConvertToText(le.ConvertToData("Hello there, line")), "Hello there, line");
  EXPECT_EQ(reader.Charset(), "utf-16");

  CharacterSetWrapper writer("");
  EXPECT_EQ(writer.Preamble(), (Bytes{0xEF, 0xBB, 0xBF}));
  EXPECT_EQ(writer.ConvertToData("\xC3\xA9"), (Bytes{0xC3, 0xA9}));
  EXPECT_EQ(writer.Charset(), "utf-8");
}

TEST(CharacterSetWrapperTest, LineBreaksAsBytesOnlyWhereTheyCannotHide) {
  EXPECT_TRUE(CharacterSetWrapper("utf-8").LineBreaksAreBytes());
  EXPECT_TRUE(CharacterSetWrapper("windows-1252").LineBreaksAreBytes());
  EXPECT_TRUE(CharacterSetWrapper("shift_jis").LineBreaksAreBytes());
  EXPECT_FALSE(CharacterSetWrapper("unicode").LineBreaksAreBytes());
  EXPECT_FALSE(CharacterSetWrapper("utf-32be").LineBreaksAreBytes());
  EXPECT_FALSE(CharacterSetWrapper("ibm037").LineBreaksAreBytes());
}

}  // namespace
}  // namespace tessel
