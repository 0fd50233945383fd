#include "tests/support/CatchError.h"
#include "services/FileSystemWrapper.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "core/Error.h"
#include "core/SafeArray.h"
#include "tests/support/TempDir.h"

namespace tessel {
namespace {

namespace fs = std::filesystem;
using test::ReadFileText;
using test::TempDir;
using test::WriteFileText;

using test::CatchError;

std::string P(const TempDir& dir, const std::string& leaf) { return (dir / leaf).string(); }

std::vector<std::string> AllLines(FileSystemWrapper& files, const std::string& handle) {
  std::vector<std::string> lines;
  std::string line;
  while (files.ReadLine(handle, line)) lines.push_back(line);
  return lines;
}

std::vector<std::string> LinesOfFile(const std::string& path, const std::string& charset = "utf-8") {
  FileSystemWrapper files;
  const std::string handle = files.OpenTextStream(path, false, charset, false);
  std::vector<std::string> lines = AllLines(files, handle);
  files.CloseFile(handle);
  return lines;
}

using Lines = std::vector<std::string>;

// --- Text streams ---------------------------------------------------------------------------

TEST(FileSystemWrapperTest, TextFilesOfEveryNamedSetWithAndWithoutPreamble) {
  TempDir dir;
  const std::string text = "Caf\xC3\xA9;\xE2\x82\xAC" "5\r\nna\xC3\xAFve \xE2\x80\x93 2\r\n";
  const std::string latin = "Caf\xC3\xA9;5\r\nna\xC3\xAFve 2\r\n";
  for (const char* name : {"utf-8", "unicode", "utf-16", "utf-16be", "utf-32", "utf-32be", "windows-1252",
                           "iso-8859-1"}) {
    const std::string& content = std::string(name) == "iso-8859-1" ? latin : text;
    for (bool preamble : {false, true}) {
      FileSystemWrapper files;
      const std::string handle = files.CreateTextStream("out.txt", false, dir.path().string(), true, name, preamble);
      files.WriteToFile(handle, content);
      files.CloseFile(handle);

      CharacterSetWrapper charset(name);
      Bytes expected = preamble ? charset.Preamble() : Bytes{};
      const Bytes body = charset.ConvertToData(content);
      expected.insert(expected.end(), body.begin(), body.end());
      const std::string onDisk = ReadFileText(dir / "out.txt");
      EXPECT_EQ(Bytes(onDisk.begin(), onDisk.end()), expected) << name << " preamble " << preamble;

      const std::string reader = files.OpenTextStream(P(dir, "out.txt"), false, name, false);
      EXPECT_EQ(files.ReadFile(reader), content) << name << " preamble " << preamble;
      EXPECT_EQ(AllLines(files, reader), (Lines{content.substr(0, content.find("\r\n")),
                                                content.substr(content.find("\r\n") + 2,
                                                               content.size() - content.find("\r\n") - 4)}))
          << name << " preamble " << preamble;
      files.CloseFile(reader);

      FileSystemWrapper detecting;
      const std::string detected = detecting.OpenTextStream(P(dir, "out.txt"), false, "autodetect", false);
      if (preamble || std::string(name).rfind("utf", 0) == 0 || std::string(name) == "unicode") {
        EXPECT_EQ(detecting.ReadFile(detected), content) << name << " preamble " << preamble;
      }
    }
  }
}

TEST(FileSystemWrapperTest, AutodetectedStreamNamesItsSet) {
  TempDir dir;
  CharacterSetWrapper w("windows-1252");
  const Bytes bytes = w.ConvertToData("Ren\xC3\xA9 M\xC3\xBCller;Gen\xC3\xA8ve\r\nZo\xC3\xAB;K\xC3\xB6ln\r\n");
  WriteFileText(dir / "w.csv", std::string(bytes.begin(), bytes.end()));
  FileSystemWrapper files;
  const std::string handle = files.OpenTextStream(P(dir, "w.csv"), false, "autodetect", false);
  EXPECT_EQ(AllLines(files, handle), (Lines{"Ren\xC3\xA9 M\xC3\xBCller;Gen\xC3\xA8ve", "Zo\xC3\xAB;K\xC3\xB6ln"}));
  EXPECT_EQ(files.Charset(handle).Charset(), "windows-1252");
}

TEST(FileSystemWrapperTest, AppendingKeepsWhatIsThereAndWritesThePreambleOnlyOnce) {
  TempDir dir;
  const std::string path = P(dir, "log.txt");
  FileSystemWrapper files;
  for (const char* piece : {"one\r\n", "two\r\n"}) {
    const std::string handle = files.OpenTextStream(path, true, "utf-8", true);
    files.WriteToFile(handle, piece);
    files.CloseFile(handle);
  }
  EXPECT_EQ(ReadFileText(path), "\xEF\xBB\xBFone\r\ntwo\r\n");
  const std::string handle = files.OpenTextStream(path, true, "utf-8", true);
  EXPECT_EQ(files.ReadFile(handle), "one\r\ntwo\r\n");
  files.WriteToFile(handle, "three");
  EXPECT_EQ(files.ReadFile(handle), "one\r\ntwo\r\nthree");
  files.CloseFile(handle);
}

TEST(FileSystemWrapperTest, LargeFilesPassThroughTheBuffersWhole) {
  TempDir dir;
  FileSystemWrapper files;
  std::string expected;
  const std::string handle = files.CreateTextStream("big.txt", false, dir.path().string(), false, "unicode", true);
  for (int i = 0; i < 60000; ++i) {
    std::string line = "line " + std::to_string(i) + " \xC3\xA9\xE2\x82\xAC " + std::string(i % 97, 'x');
    expected += line + "\r\n";
    files.WriteToFile(handle, line);
    files.WriteToFile(handle, "\r\n");
  }
  files.CloseFile(handle);
  const std::string reader = files.OpenTextStream(P(dir, "big.txt"), false, "unicode", false);
  EXPECT_EQ(files.ReadFile(reader), expected);
  const Lines lines = AllLines(files, reader);
  ASSERT_EQ(lines.size(), 60000u);
  EXPECT_EQ(lines[59999], "line 59999 \xC3\xA9\xE2\x82\xAC " + std::string(59999 % 97, 'x'));
}

TEST(FileSystemWrapperTest, UnwritableTextLeavesTheFileAsItWas) {
  TempDir dir;
  FileSystemWrapper files;
  const std::string handle = files.CreateTextStream("l1.txt", false, dir.path().string(), true, "iso-8859-1", false);
  files.WriteToFile(handle, "ok;");
  EXPECT_EQ(CatchError([&] { files.WriteToFile(handle, "bad \xE2\x82\xAC"); }).number(), 9532);
  files.WriteToFile(handle, "more");
  files.CloseFile(handle);
  EXPECT_EQ(ReadFileText(dir / "l1.txt"), "ok;more");
}

// Texts larger than the write buffer, between small ones: UTF-8 goes out as
// it stands, other sets through the encoder, and the order holds either way;
// a large text that cannot be written leaves the file as it was.
TEST(FileSystemWrapperTest, LargeTextsBetweenSmallOnesKeepTheirOrder) {
  TempDir dir;
  FileSystemWrapper files;
  std::string large;
  for (int i = 0; large.size() < 300000; ++i) large += "row " + std::to_string(i) + " \xC3\xA9\xE2\x82\xAC\n";
  for (const char* set : {"utf-8", "unicode"}) {
    const std::string name = std::string(set) + ".txt";
    const std::string handle = files.CreateTextStream(name, false, dir.path().string(), true, set, false);
    files.WriteToFile(handle, "head;");
    files.WriteToFile(handle, large);
    files.WriteToFile(handle, "middle;");
    files.WriteToFile(handle, large);
    EXPECT_EQ(CatchError([&] { files.WriteToFile(handle, large + "\xFF"); }).number(), 9532) << set;
    files.WriteToFile(handle, "tail");
    files.CloseFile(handle);
    const std::string reader = files.OpenTextStream(P(dir, name), false, set, false);
    EXPECT_EQ(files.ReadFile(reader), "head;" + large + "middle;" + large + "tail") << set;
    files.CloseFile(reader);
  }
}

TEST(FileSystemWrapperTest, OpenHandlesAreFlushedWhenTheWrapperGoes) {
  TempDir dir;
  {
    FileSystemWrapper files;
    const std::string handle = files.CreateTextStream("left.txt", false, dir.path().string(), true, "utf-8", false);
    files.WriteToFile(handle, "kept");
  }
  EXPECT_EQ(ReadFileText(dir / "left.txt"), "kept");
}

// --- Line breaks ----------------------------------------------------------------------------

TEST(FileSystemWrapperTest, LineBreakIsDecidedOncePerFileByPrecedence) {
  TempDir dir;
  struct Case {
    std::string content;
    Lines lines;
  };
  const std::vector<Case> cases = {
      {"a\r\nb\nc\r\nd", {"a", "b\nc", "d"}},            // CR LF anywhere wins; a lone LF stays in the line
      {"a\nb\rc\n", {"a\nb", "c\n"}},                     // CR beats LF
      {"a\nb\n\nc\n", {"a", "b", "", "c"}},               // blank line kept, last break starts nothing
      {"a\fb\fc", {"a", "b", "c"}},                       // form feed
      {"a\xC2\x85" "b", {"a", "b"}},                      // U+0085
      {"a\xE2\x80\xA8" "b\xE2\x80\xA9" "c", {"a", "b\xE2\x80\xA9" "c"}},  // U+2028 before U+2029
      {"a\xE2\x80\xA9" "b", {"a", "b"}},                  // U+2029
      {"no break at all", {"no break at all"}},
      {"", {}},
      {"x", {}},                                          // one byte reads as nothing
      {"\xEF\xBB\xBF", {}},                               // only the preamble
      {"\xEF\xBB\xBFok\r\n", {"ok"}},
  };
  for (const Case& c : cases) {
    WriteFileText(dir / "lines.txt", c.content);
    EXPECT_EQ(LinesOfFile(P(dir, "lines.txt")), c.lines) << c.content;
  }
}

TEST(FileSystemWrapperTest, LineBreaksAcrossReadChunks) {
  TempDir dir;
  constexpr size_t kChunk = 256 * 1024;
  // CR LF cut by the chunk end, a line longer than a chunk, a late CR LF that
  // decides an LF-looking file.
  std::string cut = std::string(kChunk - 1, 'a') + "\r\n" + "tail";
  WriteFileText(dir / "cut.txt", cut);
  EXPECT_EQ(LinesOfFile(P(dir, "cut.txt")), (Lines{std::string(kChunk - 1, 'a'), "tail"}));

  std::string lateCrLf = "x\ny\n" + std::string(3 * kChunk, 'b') + "\r\nz";
  WriteFileText(dir / "late.txt", lateCrLf);
  EXPECT_EQ(LinesOfFile(P(dir, "late.txt")), (Lines{"x\ny\n" + std::string(3 * kChunk, 'b'), "z"}));

  std::string separator = std::string(kChunk - 1, 'c') + "\xE2\x80\xA8" + "d";
  WriteFileText(dir / "sep.txt", separator);
  EXPECT_EQ(LinesOfFile(P(dir, "sep.txt")), (Lines{std::string(kChunk - 1, 'c'), "d"}));

  // UTF-16: the break is found in decoded text.
  CharacterSetWrapper le("unicode");
  const Bytes wide = le.ConvertToData(std::string(kChunk, 'w') + "\r\nv\nu");
  WriteFileText(dir / "wide.txt", std::string(wide.begin(), wide.end()));
  EXPECT_EQ(LinesOfFile(P(dir, "wide.txt"), "unicode"), (Lines{std::string(kChunk, 'w'), "v\nu"}));
}

TEST(FileSystemWrapperTest, LineBreakOfAText) {
  EXPECT_EQ(FileSystemWrapper::DetectLineDelimiter("a\nb\r\n"), "\r\n");
  EXPECT_EQ(FileSystemWrapper::DetectLineDelimiter("a\nb\r"), "\r");
  EXPECT_EQ(FileSystemWrapper::DetectLineDelimiter("a\fb\n"), "\n");
  EXPECT_EQ(FileSystemWrapper::DetectLineDelimiter("a\xC2\x85"), "\xC2\x85");
  EXPECT_EQ(FileSystemWrapper::DetectLineDelimiter("abc"), "");
}

TEST(FileSystemWrapperTest, BadBytesInALineStreamOrAWholeFileRaise9533) {
  TempDir dir;
  WriteFileText(dir / "bad.txt", "good\nbad \xFF\n");
  FileSystemWrapper files;
  const std::string handle = files.OpenTextStream(P(dir, "bad.txt"), false, "utf-8", false);
  std::string line;
  EXPECT_EQ(CatchError([&] { files.ReadLine(handle, line); }).number(), 9533);
  const std::string whole = files.OpenTextStream(P(dir, "bad.txt"), false, "utf-8", false);
  EXPECT_EQ(CatchError([&] { files.ReadFile(whole); }).number(), 9533);
}

// --- Binary streams -------------------------------------------------------------------------

TEST(FileSystemWrapperTest, BinaryStreamsRoundTrip) {
  TempDir dir;
  FileSystemWrapper files;
  const Bytes data = {0x00, 0xFF, 0x10, 0x0D, 0x0A};
  const std::string handle = files.CreateBinaryStream("b.bin", false, dir.path().string(), false);
  files.WriteToBinaryFile(handle, data);
  Variant array = Variant::FromVector({Variant::FromByte(7), Variant(int32_t{200})});
  files.WriteToBinaryFile(handle, array);
  files.WriteToBinaryFile(handle, Variant());
  EXPECT_EQ(CatchError([&] { files.WriteToBinaryFile(handle, Variant(1.5)); }).number(), 13);
  files.CloseFile(handle);

  const std::string reader = files.OpenBinaryStream(P(dir, "b.bin"), false);
  EXPECT_EQ(files.ReadBinaryFile(reader), (Bytes{0x00, 0xFF, 0x10, 0x0D, 0x0A, 7, 200}));
  EXPECT_EQ(CatchError([&] { files.ReadFile(reader); }).number(), 9543);
  files.CloseFile(reader);
}

// --- Failures -------------------------------------------------------------------------------

TEST(FileSystemWrapperTest, UnknownHandlesRaise9541) {
  FileSystemWrapper files;
  std::string line;
  for (const Error& e : {CatchError([&] { files.ReadFile("12345"); }),
                         CatchError([&] { files.WriteToFile("12345", "x"); }),
                         CatchError([&] { files.ReadLine("12345", line); }),
                         CatchError([&] { files.ReadBinaryFile("12345"); }),
                         CatchError([&] { files.CloseFile("12345"); })}) {
    EXPECT_EQ(e.number(), 9541);
    EXPECT_NE(e.description().find("Handle [12345] does not exist."), std::string::npos);
  }
  TempDir dir;
  const std::string handle = files.CreateTextStream("h.txt", false, dir.path().string(), true, "utf-8", false);
  files.CloseFile(handle);
  EXPECT_EQ(CatchError([&] { files.CloseFile(handle); }).number(), 9541);
}

TEST(FileSystemWrapperTest, UnreadableFilesRaise9542WithTheSystemsReason) {
  TempDir dir;
  FileSystemWrapper files;
  const Error missing = CatchError([&] { files.OpenTextStream(P(dir, "none.txt"), false, "utf-8", false); });
  EXPECT_EQ(missing.number(), 9542);
  EXPECT_NE(missing.description().find("No such file or directory"), std::string::npos);
  EXPECT_NE(missing.description().find("none.txt"), std::string::npos);

  const Error folder = CatchError([&] { files.OpenBinaryStream(dir.path().string(), false); });
  EXPECT_EQ(folder.number(), 9542);
  EXPECT_NE(folder.description().find("Is a directory"), std::string::npos);

  const Error noDir = CatchError(
      [&] { files.CreateTextStream("x.txt", false, P(dir, "missing"), false, "utf-8", false); });
  EXPECT_EQ(noDir.number(), 9542);
}

TEST(FileSystemWrapperTest, WritingToAReadStreamRaises9542AtOnce) {
  TempDir dir;
  WriteFileText(dir / "r.txt", "content");
  FileSystemWrapper files;
  const std::string handle = files.OpenTextStream(P(dir, "r.txt"), false, "utf-8", false);
  EXPECT_EQ(CatchError([&] { files.WriteToFile(handle, "x"); }).number(), 9542);
  files.CloseFile(handle);
  EXPECT_EQ(ReadFileText(dir / "r.txt"), "content");
}

TEST(FileSystemWrapperTest, UnknownCharacterSetFailsAtOpen) {
  TempDir dir;
  FileSystemWrapper files;
  WriteFileText(dir / "a.txt", "ab");
  EXPECT_EQ(CatchError([&] { files.OpenTextStream(P(dir, "a.txt"), false, "klingon", false); }).number(), 9532);
}

// --- Names ----------------------------------------------------------------------------------

TEST(FileSystemWrapperTest, UniqueNamesCountUpFromOne) {
  TempDir dir;
  FileSystemWrapper files;
  const std::string folder = dir.path().string();
  for (const char* expected : {"report.csv", "report_1.csv", "report_2.csv"}) {
    const std::string handle = files.CreateTextStream("report.csv", false, folder, false, "utf-8", false);
    EXPECT_EQ(files.OpenFileName(handle), P(dir, expected));
    files.CloseFile(handle);
  }
  EXPECT_EQ(files.GenerateUniqueFileName(folder, "report_7.csv"), "report_3.csv");
  EXPECT_EQ(files.GenerateUniqueFileName(folder, "abcde.txt"), "abcde_1.txt");
  EXPECT_EQ(files.GenerateUniqueFileName(folder, "a_b.txt"), "a_1.txt");
  EXPECT_EQ(files.GenerateUniqueFileName(folder, "my_report.txt"), "my_report_1.txt");
  EXPECT_EQ(files.GenerateUniqueFileName(folder, "README"), "README_1.");
  EXPECT_EQ(files.GenerateFileName("report.csv", false, folder, true), P(dir, "report.csv"));
}

TEST(FileSystemWrapperTest, ShortBaseWithoutUnderscoreCannotBeMadeUnique) {
  TempDir dir;
  WriteFileText(dir / "abc.txt", "x");
  FileSystemWrapper files;
  const Error e = CatchError([&] { files.GenerateFileName("abc.txt", false, dir.path().string(), false); });
  EXPECT_EQ(e.number(), 9545);
  EXPECT_NO_THROW(files.GenerateFileName("abc.txt", false, dir.path().string(), true));
}

TEST(FileSystemWrapperTest, InvalidCharactersRaise9544) {
  TempDir dir;
  FileSystemWrapper files;
  const std::string folder = dir.path().string();
  for (const char* name : {"a/b.txt", "a\\b.txt", "a:b", "a*b", "a?b", "a<b", "a>b", "a|b", "a\"b", "a\tb", "a\rb",
                           "a\nb", "\xE6\x97\xA5.txt"}) {
    const Error e = CatchError([&] { files.CreateTextStream(name, false, folder, false, "utf-8", false); });
    EXPECT_EQ(e.number(), 9544) << name;
    EXPECT_NE(e.description().find("has invalid characters."), std::string::npos);
  }
  EXPECT_TRUE(FileSystemWrapper::CheckFileNameIsValid("Caf\xC3\xA9 \xE2\x82\xAC.csv"));
  EXPECT_TRUE(fs::is_empty(dir.path()));
}

class UpperCaseEvaluator : public IFileNameEvaluator {
 public:
  std::string Evaluate(const std::string& expression, Transaction*) override {
    if (expression == "fail") throw Error(13, "Type mismatch");
    std::string result = expression;
    for (char& c : result) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return result;
  }
};

TEST(FileSystemWrapperTest, EvaluatedNames) {
  TempDir dir;
  FileSystemWrapper files;
  const std::string folder = dir.path().string();
  EXPECT_EQ(CatchError([&] { files.GenerateFileName("\"a\" & %ID%", true, folder, false); }).number(), 9540);

  files.SetFileNameEvaluator(std::make_unique<UpperCaseEvaluator>());
  EXPECT_EQ(files.GenerateFileName("name.txt", true, folder, false), P(dir, "NAME.TXT"));
  const Error failed = CatchError([&] { files.GenerateFileName("fail", true, folder, false); });
  EXPECT_EQ(failed.number(), 13);
  EXPECT_NE(failed.description().find("Error whilst evaluating the filename."), std::string::npos);
}

TEST(FileSystemWrapperTest, PathParts) {
  EXPECT_EQ(FileSystemWrapper::BuildPath("/a/b", "c.txt"), "/a/b/c.txt");
  EXPECT_EQ(FileSystemWrapper::BuildPath("/a/b/", "/c.txt"), "/a/b/c.txt");
  EXPECT_EQ(FileSystemWrapper::BuildPath("", "c.txt"), "c.txt");
  EXPECT_EQ(FileSystemWrapper::FilePath("/a/b/c.txt"), "/a/b");
  EXPECT_EQ(FileSystemWrapper::FilePath("/c.txt"), "/");
  EXPECT_EQ(FileSystemWrapper::FilePath("c.txt"), "");
  EXPECT_EQ(FileSystemWrapper::FileName("/a/b/c.tar.gz"), "c.tar.gz");
  EXPECT_EQ(FileSystemWrapper::FileName("/a/b/"), "b");
  EXPECT_EQ(FileSystemWrapper::BaseName("/a/b/c.tar.gz"), "c.tar");
  EXPECT_EQ(FileSystemWrapper::FileExtension("/a/b/c.tar.gz"), "gz");
  EXPECT_EQ(FileSystemWrapper::FileExtension("/a.d/b"), "");
}

// --- Wildcards and listing ------------------------------------------------------------------

TEST(FileSystemWrapperTest, WildcardRules) {
  struct Case {
    const char* name;
    const char* filter;
    bool match;
  };
  const std::vector<Case> cases = {
      {"a.CSV", "*.csv", true},   {"a.csv.bak", "*.csv", false}, {"ac", "a?c", true},
      {"abc", "a?c", true},       {"a.c", "a?c", false},         {"abbc", "a?c", false},
      {"readme", "*.", true},     {"read.me", "*.", false},      {"readme", "*.*", true},
      {"x.y.z", "*.*", true},     {"abc", "abc.*", true},        {"abc", "abc.", true},
      {"abc", "*", true},         {"", "*", true},               {"data_2024.csv", "data_*.csv", true},
      {"data.csv", "data_*.csv", false},  {"\xC3\x89T\xC3\x89.txt", "\xC3\xa9t\xC3\xa9.TXT", true},
      {"aXbXc", "*b*c", true},    {"abc", "a??", true},          {"a", "a??", true},
      {"ab.c", "a?.c", true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(FileSystemWrapper::CompareFileName(c.name, c.filter), c.match) << c.name << " ~ " << c.filter;
  }
  // A long run of wildcards against a long name must still answer quickly.
  EXPECT_FALSE(FileSystemWrapper::CompareFileName(std::string(200, 'a'), std::string(60, '?') + "*?*?*b"));
}

TEST(FileSystemWrapperTest, MatchingFilesInNameOrder) {
  TempDir dir;
  for (const char* name : {"b.csv", "A.CSV", "c.txt", "d.csv"}) WriteFileText(dir / name, "x");
  fs::create_directory(dir / "sub.csv");
  WriteFileText(dir / "sub.csv" / "e.csv", "x");
  FileSystemWrapper files;
  EXPECT_EQ(files.GetMatchingFiles(P(dir, "*.csv")), (Lines{P(dir, "A.CSV"), P(dir, "b.csv"), P(dir, "d.csv")}));
  EXPECT_EQ(files.GetMatchingFiles(dir.path().string()).size(), 4u);
  EXPECT_TRUE(files.GetMatchingFiles(P(dir, "*.xml")).empty());
  const Error e = CatchError([&] { files.GetMatchingFiles(P(dir, "nowhere/*.csv")); });
  EXPECT_EQ(e.number(), 8501);
  EXPECT_NE(e.description().find("Path does not exist ["), std::string::npos);
}

// --- Changes --------------------------------------------------------------------------------

TEST(FileSystemWrapperTest, CopyAndMoveResolveCollisions) {
  TempDir dir;
  fs::create_directory(dir / "in");
  fs::create_directory(dir / "out");
  WriteFileText(dir / "in" / "orders.csv", "new");
  WriteFileText(dir / "in" / "other.csv", "other");
  WriteFileText(dir / "out" / "orders.csv", "old");
  FileSystemWrapper files;

  files.CopyFiles(P(dir, "in/orders.csv"), P(dir, "out"));
  EXPECT_EQ(ReadFileText(dir / "out" / "orders.csv"), "old");
  EXPECT_EQ(ReadFileText(dir / "out" / "orders_1.csv"), "new");
  EXPECT_TRUE(fs::exists(dir / "in" / "orders.csv"));

  files.MoveFiles(P(dir, "in/*.csv"), P(dir, "out"));
  EXPECT_EQ(ReadFileText(dir / "out" / "orders_2.csv"), "new");
  EXPECT_EQ(ReadFileText(dir / "out" / "other.csv"), "other");
  EXPECT_TRUE(fs::is_empty(dir / "in"));

  WriteFileText(dir / "in" / "x1.txt", "1");
  files.MoveFiles(P(dir, "in/x1.txt"), P(dir, "out"), "renamed.txt");
  EXPECT_EQ(ReadFileText(dir / "out" / "renamed.txt"), "1");

  EXPECT_EQ(CatchError([&] { files.CopyFiles(P(dir, "out/*.csv"), P(dir, "nowhere")); }).number(), 76);
  EXPECT_EQ(CatchError([&] { files.CopyFiles(P(dir, "out/*.csv"), P(dir, "in"), "a/b"); }).number(), 9544);
}

TEST(FileSystemWrapperTest, FolderChangesAndDeletes) {
  TempDir dir;
  FileSystemWrapper files;
  EXPECT_NO_THROW(files.DeleteFile(P(dir, "absent.txt")));
  EXPECT_NO_THROW(files.DeleteFolder(P(dir, "absent")));
  EXPECT_NO_THROW(files.MoveFolder(P(dir, "absent"), P(dir, "elsewhere")));
  EXPECT_FALSE(fs::exists(dir / "elsewhere"));

  files.CreateFolder(P(dir, "a/b/c"));
  files.CreateFolder(P(dir, "a/b/c"));
  EXPECT_TRUE(files.FolderExists(P(dir, "a/b/c")));
  WriteFileText(dir / "a" / "b" / "c" / "f.txt", "f");
  EXPECT_TRUE(files.FileExists(P(dir, "a/b/c/f.txt")));
  EXPECT_FALSE(files.FileExists(P(dir, "a/b/c")));

  files.MoveFolder(P(dir, "a/b"), P(dir, "moved"));
  EXPECT_EQ(ReadFileText(dir / "moved" / "c" / "f.txt"), "f");
  files.CreateFolder(P(dir, "target"));
  files.MoveFolder(P(dir, "moved"), P(dir, "target/"));
  EXPECT_TRUE(fs::exists(dir / "target" / "moved" / "c" / "f.txt"));
  EXPECT_EQ(CatchError([&] { files.MoveFolder(P(dir, "a"), P(dir, "target")); }).number(), 58);

  files.DeleteFile(P(dir, "target/moved/c/f.txt"));
  EXPECT_FALSE(fs::exists(dir / "target" / "moved" / "c" / "f.txt"));
  files.DeleteFolder(P(dir, "target"));
  EXPECT_FALSE(fs::exists(dir / "target"));
}

TEST(FileSystemWrapperTest, TempFilesAndFreeSpace) {
  TempDir dir;
  FileSystemWrapper files;
  const std::string first = files.GetTempFileName(dir.path().string(), "binary");
  const std::string second = files.GetTempFileName(dir.path().string(), "binary");
  EXPECT_NE(first, second);
  EXPECT_TRUE(files.FileExists(first));
  const std::string name = FileSystemWrapper::FileName(first);
  EXPECT_EQ(name.substr(0, 3), "bin");
  EXPECT_EQ(name.size(), 3u + 4u + 4u);
  EXPECT_EQ(name.substr(7), ".TMP");
  const Error e = CatchError([&] { files.GetTempFileName(P(dir, "missing"), "x"); });
  EXPECT_EQ(e.number(), 9546);
  EXPECT_NE(e.description().find("Cannot create temp file in ["), std::string::npos);

  EXPECT_GT(files.GetDriveSpaceMB(dir.path().string()), 0);
  EXPECT_EQ(CatchError([&] { files.GetDriveSpaceMB(P(dir, "missing")); }).number(), 8501);
}

TEST(FileSystemWrapperTest, IoErrorNumbers) {
  for (int32_t n : {55, 57, 58, 61, 70, 71}) EXPECT_TRUE(FileSystemWrapper::IsIOError(n)) << n;
  for (int32_t n : {0, 53, 75, 76, 9542}) EXPECT_FALSE(FileSystemWrapper::IsIOError(n)) << n;
}

}  // namespace
}  // namespace tessel
