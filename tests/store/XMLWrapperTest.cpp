#include "tests/support/CatchError.h"
#include "store/XMLWrapper.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "audit/HuntErr.h"
#include "tests/support/TempDir.h"

namespace tessel {
namespace {

using test::ReadFileText;
using test::TempDir;
using test::WriteFileText;

using test::CatchError;

std::string Text(xmlNodePtr node) {
  xmlChar* content = xmlNodeGetContent(node);
  std::string text = content ? reinterpret_cast<const char*>(content) : "";
  xmlFree(content);
  return text;
}

const char* kRecords =
    "<?xml version=\"1.0\"?>\n"
    "<DATA>\n"
    "  <RECORDS>\n"
    "    <RECORD id=\"1\"><NAME> Ann </NAME></RECORD>\n"
    "    <RECORD id=\"2\"><NAME>Bob</NAME></RECORD>\n"
    "    <SUMMARY total=\"2\"/>\n"
    "  </RECORDS>\n"
    "</DATA>";

// --- Making documents ------------------------------------------------------------

TEST(XMLWrapperTest, WhitespaceIsPreservedInAllThreeWaysOfMakingADocument) {
  XMLWrapper loaded;
  loaded.LoadXML(kRecords);
  EXPECT_EQ(loaded.ToString(), std::string(kRecords) + "\n");
  EXPECT_EQ(Text(loaded.GetNodeFromXPath("//RECORD[1]/NAME")), " Ann ");

  TempDir dir;
  WriteFileText(dir / "records.xml", kRecords);
  XMLWrapper opened;
  opened.OpenXMLDocument((dir / "records.xml").string());
  EXPECT_EQ(opened.GetNodesFromXPath("/DATA/RECORDS/text()").size(), 4u);
  EXPECT_EQ(opened.ToString(), std::string(kRecords) + "\n");

  XMLWrapper created;
  xmlDocPtr doc = created.CreateDocument();
  xmlNodePtr root = created.AddElement(created.GenerateNode("DATA"), reinterpret_cast<xmlNodePtr>(doc));
  created.AddElement(created.GenerateNode("NAME", Variant("  two  ")), root);
  EXPECT_EQ(created.ToString(), "<?xml version=\"1.0\"?>\n<DATA><NAME>  two  </NAME></DATA>\n");
}

TEST(XMLWrapperTest, DtdIsRefusedFromFileButAcceptedFromText) {
  const std::string withDtd =
      "<?xml version=\"1.0\"?>\n<!DOCTYPE DATA [<!ENTITY who \"world\">]>\n<DATA>hello &who;</DATA>";
  TempDir dir;
  WriteFileText(dir / "dtd.xml", withDtd);
  XMLWrapper opened;
  Error e = CatchError([&] { opened.OpenXMLDocument((dir / "dtd.xml").string()); });
  EXPECT_EQ(e.number(), 7704);
  EXPECT_EQ(ShortDescription(e).rfind("XML Load Failed\r\nDescription: DTD is prohibited.", 0), 0u)
      << e.description();
  EXPECT_EQ(opened.DOMDocument(), nullptr);

  XMLWrapper loaded;
  loaded.LoadXML(withDtd);
  EXPECT_EQ(Text(loaded.GetNodeFromXPath("/DATA")), "hello world");
}

TEST(XMLWrapperTest, ExternalEntitiesAreNeverLoaded) {
  TempDir dir;
  WriteFileText(dir / "secret.txt", "TOP-SECRET");
  const std::string text = "<?xml version=\"1.0\"?>\n<!DOCTYPE DATA [<!ENTITY s SYSTEM \"file://" +
                           (dir / "secret.txt").string() + "\">]>\n<DATA>&s;</DATA>";
  XMLWrapper wrapper;
  try {
    wrapper.LoadXML(text);
  } catch (const Error& e) {
    EXPECT_EQ(e.description().find("TOP-SECRET"), std::string::npos);
    return;
  }
  EXPECT_EQ(Text(wrapper.GetNodeFromXPath("/DATA")).find("TOP-SECRET"), std::string::npos);
  EXPECT_EQ(wrapper.ToString().find("TOP-SECRET"), std::string::npos);
}

TEST(XMLWrapperTest, LoadFailureCarriesTheParsersReport) {
  XMLWrapper wrapper;
  Error e = CatchError([&] { wrapper.LoadXML("<DATA>\n\t<A></B>\n</DATA>"); });
  EXPECT_EQ(e.number(), 7704);
  EXPECT_EQ(e.source(), "HuntERR.ErrorIn");
  std::string reason = TraceFreeDescription(e.source(), e.description());
  // The report: reason, the offending line with tabs as blanks, a caret under
  // the position, then line and position.
  size_t at = reason.find("\r\nSource Line:  <A></B>\r\n");
  ASSERT_NE(at, std::string::npos) << reason;
  EXPECT_EQ(reason.rfind("XML Load Failed\r\nDescription: ", 0), 0u);
  size_t pos = reason.find(" Pos=");
  ASSERT_NE(pos, std::string::npos);
  int column = std::stoi(reason.substr(pos + 5));
  EXPECT_GT(column, 1);
  EXPECT_NE(reason.find(" Line=2 Pos="), std::string::npos) << reason;
  EXPECT_NE(reason.find("\r\n.            " + std::string(column - 1, ' ') + "^\r\n Line=2"),
            std::string::npos)
      << reason;

  Error empty = CatchError([&] { wrapper.LoadXML(""); });
  EXPECT_EQ(empty.number(), 7704);
  Error undeclared = CatchError([&] { wrapper.LoadXML("<a:DATA/>"); });
  EXPECT_EQ(undeclared.number(), 7704);
}

TEST(XMLWrapperTest, MissingFileIs7705) {
  TempDir dir;
  XMLWrapper wrapper;
  std::string path = (dir / "none.xml").string();
  Error e = CatchError([&] { wrapper.OpenXMLDocument(path); });
  EXPECT_EQ(e.number(), 7705);
  EXPECT_EQ(ShortDescription(e), "Could not open file [" + path + "]");
  EXPECT_NE(e.description().find("  Call Stack: XMLWrapper.OpenXMLDocument(sXMLPath='"),
            std::string::npos);
}

TEST(XMLWrapperTest, OperationsWithoutADocumentRaiseInsteadOfCrashing) {
  XMLWrapper wrapper;
  EXPECT_EQ(CatchError([&] { wrapper.GetNodeFromXPath("/DATA"); }).number(), 91);
  EXPECT_EQ(CatchError([&] { wrapper.ToString(); }).number(), 91);
  EXPECT_EQ(CatchError([&] { wrapper.GenerateNode("A"); }).number(), 91);
  EXPECT_EQ(CatchError([&] { wrapper.HasAttribute(nullptr, "id"); }).number(), 91);
  EXPECT_EQ(wrapper.EncodingMethod(), "");
}

// --- Queries -------------------------------------------------------------------------

TEST(XMLWrapperTest, MissingNodeRaises7703ButAnEmptyListIsAResult) {
  XMLWrapper wrapper;
  wrapper.LoadXML(kRecords);
  EXPECT_TRUE(wrapper.GetNodesFromXPath("//MISSING").empty());
  Error e = CatchError([&] { wrapper.GetNodeFromXPath("//MISSING"); });
  EXPECT_EQ(e.number(), 7703);
  EXPECT_EQ(ShortDescription(e), "[//MISSING] could not be found in document.");
  EXPECT_NE(e.description().find(
                "  Call Stack: XMLWrapper.GetNodeFromXPath(sXPath='//MISSING', objNode={Nothing})"),
            std::string::npos);

  // Relative queries start at the given node; the first match wins.
  xmlNodePtr records = wrapper.GetNodeFromXPath("/DATA/RECORDS");
  EXPECT_EQ(wrapper.GetAttributeFromNode(wrapper.GetNodeFromXPath("RECORD", records), "id"), "1");
  EXPECT_EQ(wrapper.GetNodesFromXPath("RECORD[@id='2']/NAME", records).size(), 1u);
}

TEST(XMLWrapperTest, BadQueriesRaiseNumberedErrors) {
  XMLWrapper wrapper;
  wrapper.LoadXML(kRecords);
  Error syntax = CatchError([&] { wrapper.GetNodesFromXPath("//RECORD[@id="); });
  EXPECT_EQ(syntax.number(), Error::kGeneral);
  EXPECT_NE(syntax.description().find("Invalid XPath query [//RECORD[@id=]"), std::string::npos);
  Error notNodes = CatchError([&] { wrapper.GetNodeFromXPath("count(//RECORD)"); });
  EXPECT_EQ(notNodes.number(), Error::kGeneral);
  Error prefix = CatchError([&] { wrapper.GetNodesFromXPath("//x:RECORD"); });
  EXPECT_EQ(prefix.number(), Error::kGeneral);
}

TEST(XMLWrapperTest, ManyDistinctQueriesStayCorrect) {
  XMLWrapper wrapper;
  wrapper.LoadXML(kRecords);
  for (int i = 0; i < 1500; ++i) {
    std::string query = "//RECORD[@id='" + std::to_string(i % 3) + "' or " + std::to_string(i) + "=-1]";
    EXPECT_EQ(wrapper.GetNodesFromXPath(query).size(), (i % 3 == 1 || i % 3 == 2) ? 1u : 0u) << query;
  }
}

TEST(XMLWrapperTest, AttributeLookups) {
  XMLWrapper wrapper;
  wrapper.LoadXML("<DATA a=\"x &amp; y\" b=\"\"><C/></DATA>");
  xmlNodePtr data = wrapper.GetNodeFromXPath("/DATA");
  EXPECT_TRUE(wrapper.HasAttribute(data, "a"));
  EXPECT_TRUE(wrapper.HasAttribute(data, "b"));
  EXPECT_FALSE(wrapper.HasAttribute(data, "c"));
  EXPECT_TRUE(wrapper.HasAttribute(data, "*"));
  EXPECT_EQ(wrapper.GetAttributeFromNode(data, "a"), "x & y");
  EXPECT_EQ(wrapper.GetAttributeFromNode(data, "b"), "");
  Error missing = CatchError([&] { wrapper.GetAttributeFromNode(data, "c"); });
  EXPECT_EQ(missing.number(), 7701);
  EXPECT_EQ(ShortDescription(missing), "No matching attribute [c] could be found in the node.");
  // More than one match is as wrong as none.
  EXPECT_EQ(CatchError([&] { wrapper.GetAttributeFromNode(data, "*"); }).number(), 7701);
}

// --- Changing documents -------------------------------------------------------------

TEST(XMLWrapperTest, CopyIntoNewWrapperIsIndependent) {
  XMLWrapper source;
  source.LoadXML(kRecords);
  Ref<XMLWrapper> copy = source.CopyNodeIntoNewWrapper("//RECORD[2]");
  EXPECT_EQ(copy->ToString(), "<?xml version=\"1.0\"?>\n<RECORD id=\"2\"><NAME>Bob</NAME></RECORD>\n");
  copy->SetValueToNode(copy->GetNodeFromXPath("/RECORD/NAME"), Variant("Changed"), false);
  copy->DeleteNode(copy->GetNodeFromXPath("/RECORD/@id"));
  EXPECT_EQ(Text(source.GetNodeFromXPath("//RECORD[2]/NAME")), "Bob");
  EXPECT_EQ(source.GetAttributeFromNode(source.GetNodeFromXPath("//RECORD[2]"), "id"), "2");
  source.DeleteNode(source.GetNodeFromXPath("//RECORD[2]"));
  EXPECT_EQ(Text(copy->GetNodeFromXPath("/RECORD/NAME")), "Changed");

  XMLWrapper latin;
  latin.LoadXML("<?xml version=\"1.0\" encoding=\"iso-8859-1\"?><DATA>caf\xC3\xA9</DATA>");
  Ref<XMLWrapper> whole = latin.CopyNodeIntoNewWrapper("/");
  EXPECT_EQ(whole->ToString(), latin.ToString());
  latin.ClearDocument();
  EXPECT_EQ(Text(whole->GetNodeFromXPath("/DATA")), "caf\xC3\xA9");
}

TEST(XMLWrapperTest, EncodingIsShownByToStringAndUsedBySave) {
  XMLWrapper latin;
  latin.LoadXML("<?xml version=\"1.0\" encoding=\"iso-8859-1\"?>\n<DATA>caf\xC3\xA9</DATA>");
  EXPECT_EQ(latin.EncodingMethod(), "iso-8859-1");
  EXPECT_EQ(latin.ToString(),
            "<?xml version=\"1.0\" encoding=\"iso-8859-1\"?>\n<DATA>caf\xC3\xA9</DATA>\n");

  TempDir dir;
  std::string path = (dir / "latin.xml").string();
  latin.SaveDocument(path);
  EXPECT_NE(ReadFileText(path).find("caf\xE9</DATA>"), std::string::npos);
  XMLWrapper reopened;
  reopened.OpenXMLDocument(path);
  EXPECT_EQ(reopened.EncodingMethod(), "iso-8859-1");
  EXPECT_EQ(Text(reopened.GetNodeFromXPath("/DATA")), "caf\xC3\xA9");

  XMLWrapper plain;
  plain.LoadXML("<?xml version=\"1.0\"?><DATA/>");
  EXPECT_EQ(plain.EncodingMethod(), "");
  EXPECT_EQ(plain.ToString(), "<?xml version=\"1.0\"?>\n<DATA/>\n");
  plain.EncodingMethod("windows-1252");
  EXPECT_EQ(plain.ToString(), "<?xml version=\"1.0\" encoding=\"windows-1252\"?>\n<DATA/>\n");

  XMLWrapper bare;
  bare.LoadXML("<DATA/>");
  EXPECT_EQ(bare.ToString(), "<DATA/>\n");
}

TEST(XMLWrapperTest, ClearDocumentKeepsTheDeclaration) {
  XMLWrapper wrapper;
  wrapper.LoadXML("<?xml version=\"1.0\" encoding=\"UTF-8\"?><!--note--><DATA><A/></DATA>");
  wrapper.ClearDocument();
  EXPECT_EQ(wrapper.ToString(), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!--note-->\n");
  xmlNodePtr root = wrapper.AddElement(wrapper.GenerateNode("NEW"), reinterpret_cast<xmlNodePtr>(wrapper.DOMDocument()));
  EXPECT_EQ(wrapper.GetNodeFromXPath("/NEW"), root);
}

TEST(XMLWrapperTest, AddElementRefusesWhatWouldBreakTheTree) {
  XMLWrapper wrapper;
  wrapper.LoadXML("<DATA><A x=\"1\"><B/></A></DATA>");
  xmlNodePtr a = wrapper.GetNodeFromXPath("/DATA/A");
  xmlNodePtr b = wrapper.GetNodeFromXPath("/DATA/A/B");
  EXPECT_EQ(CatchError([&] { wrapper.AddElement(a, b); }).number(), Error::kGeneral);
  EXPECT_EQ(CatchError([&] { wrapper.AddElement(a, a); }).number(), Error::kGeneral);
  xmlNodePtr doc = reinterpret_cast<xmlNodePtr>(wrapper.DOMDocument());
  EXPECT_EQ(CatchError([&] { wrapper.AddElement(wrapper.GenerateNode("SECOND"), doc); }).number(),
            Error::kGeneral);
  // An attribute has no place at the top of a document.
  EXPECT_EQ(CatchError([&] { wrapper.CopyNodeIntoNewWrapper("//A/@x"); }).number(), Error::kGeneral);
  EXPECT_EQ(wrapper.ToString(), "<DATA><A x=\"1\"><B/></A></DATA>\n");

  // Moving nodes within the document: an element, then an attribute.
  wrapper.AddElement(b, wrapper.GetNodeFromXPath("/DATA"));
  wrapper.AddElement(wrapper.GetNodeFromXPath("/DATA/A/@x"), b);
  EXPECT_EQ(wrapper.ToString(), "<DATA><A/><B x=\"1\"/></DATA>\n");
}

TEST(XMLWrapperTest, AddElementTakesNodesOfOtherDocumentsAsCopies) {
  XMLWrapper from;
  from.LoadXML("<X><Y>1</Y></X>");
  XMLWrapper to;
  to.LoadXML("<DATA/>");
  xmlNodePtr added = to.AddElement(from.GetNodeFromXPath("/X/Y"), to.GetNodeFromXPath("/DATA"));
  EXPECT_EQ(added->doc, to.DOMDocument());
  EXPECT_EQ(from.ToString(), "<X><Y>1</Y></X>\n");
  EXPECT_EQ(to.ToString(), "<DATA><Y>1</Y></DATA>\n");

  // A document node replaces this wrapper's document.
  to.AddElement(reinterpret_cast<xmlNodePtr>(from.DOMDocument()), nullptr);
  EXPECT_EQ(to.ToString(), "<X><Y>1</Y></X>\n");
}

TEST(XMLWrapperTest, GeneratedNodesAndValues) {
  XMLWrapper wrapper;
  xmlDocPtr doc = wrapper.CreateDocument();
  xmlNodePtr root = wrapper.AddElement(wrapper.GenerateNode("DATA"), reinterpret_cast<xmlNodePtr>(doc));
  wrapper.AddElement(wrapper.GenerateNode("EMPTY", Variant("")), root);
  wrapper.AddElement(wrapper.GenerateNode("NULL", Variant::Null()), root);
  wrapper.AddElement(wrapper.GenerateNode("NUM", Variant(int32_t{42})), root);
  wrapper.AddElement(wrapper.GenerateNode("p:NS", Variant("v"), "urn:test"), root);
  xmlNodePtr text = wrapper.AddElement(wrapper.GenerateNode("TEXT"), root);
  wrapper.SetValueToNode(text, Variant("a < b & \"c\""), false);
  xmlNodePtr cdata = wrapper.AddElement(wrapper.GenerateNode("CDATA", Variant("old")), root);
  wrapper.SetValueToNode(cdata, Variant("x]]>y <z>"), true);
  EXPECT_EQ(wrapper.ToString(),
            "<?xml version=\"1.0\"?>\n<DATA><EMPTY/><NULL/><NUM>42</NUM>"
            "<p:NS xmlns:p=\"urn:test\">v</p:NS><TEXT>a &lt; b &amp; \"c\"</TEXT>"
            "<CDATA><![CDATA[x]]]]><![CDATA[>y <z>]]></CDATA></DATA>\n");
  XMLWrapper reread;
  reread.LoadXML(wrapper.ToString());
  EXPECT_EQ(Text(reread.GetNodeFromXPath("/DATA/CDATA")), "x]]>y <z>");

  EXPECT_EQ(CatchError([&] { wrapper.GenerateNode("bad name"); }).number(), Error::kGeneral);
  // A node that never went into the tree has no parent to be deleted from.
  EXPECT_EQ(CatchError([&] { wrapper.DeleteNode(wrapper.GenerateNode("LOOSE")); }).number(), 91);
}

// --- Paths and literals ----------------------------------------------------------------

TEST(XMLWrapperTest, XPathFromNode) {
  XMLWrapper wrapper;
  wrapper.LoadXML(kRecords);
  xmlNodePtr second = wrapper.GetNodeFromXPath("//RECORD[@id='2']");
  EXPECT_EQ(wrapper.XPathFromNode(second), "//DATA/RECORDS/RECORD[2]");
  EXPECT_EQ(wrapper.XPathFromNode(wrapper.GetNodeFromXPath("//RECORD[@id='2']/NAME")),
            "//DATA/RECORDS/RECORD[2]/NAME");
  EXPECT_EQ(wrapper.XPathFromNode(wrapper.GetNodeFromXPath("//SUMMARY")), "//DATA/RECORDS/SUMMARY");
  EXPECT_EQ(wrapper.XPathFromNode(reinterpret_cast<xmlNodePtr>(wrapper.DOMDocument())), "/");
  for (xmlNodePtr node : wrapper.GetNodesFromXPath("//*")) {
    EXPECT_EQ(wrapper.GetNodeFromXPath(wrapper.XPathFromNode(node)), node);
  }
  Error e = CatchError([&] { wrapper.XPathFromNode(nullptr); });
  EXPECT_EQ(e.number(), 7706);
}

TEST(XMLWrapperTest, GenerateConcatForXPath) {
  EXPECT_EQ(XMLWrapper::GenerateConcatForXPath("", false), "''");
  EXPECT_EQ(XMLWrapper::GenerateConcatForXPath("abc", false), "'abc'");
  EXPECT_EQ(XMLWrapper::GenerateConcatForXPath("O'Neil", false), "\"O'Neil\"");
  EXPECT_EQ(XMLWrapper::GenerateConcatForXPath("5\" disk", false), "'5\" disk'");
  EXPECT_EQ(XMLWrapper::GenerateConcatForXPath("a'b'c", false),
            "concat('a', \"'\", 'b', \"'\", 'c')");
  EXPECT_EQ(XMLWrapper::GenerateConcatForXPath("x\"y'", false),
            "concat('x', '\"', 'y', \"'\", '')");
  EXPECT_EQ(XMLWrapper::GenerateConcatForXPath("'abc'", true), "'abc'");
  EXPECT_EQ(XMLWrapper::GenerateConcatForXPath("'abc'", false), "concat('', \"'\", 'abc', \"'\", '')");
  EXPECT_EQ(XMLWrapper::GenerateConcatForXPath("'abc\"", true),
            "concat('', \"'\", 'abc', '\"', '')");

  // Every literal finds the value it was made from.
  XMLWrapper wrapper;
  wrapper.CreateDocument();
  xmlNodePtr root = wrapper.AddElement(wrapper.GenerateNode("DATA"),
                                       reinterpret_cast<xmlNodePtr>(wrapper.DOMDocument()));
  for (std::string value : {"", "plain", "O'Neil", "5\"", "a'b'c", "x\"y'", "''\"\"", "'"}) {
    xmlNodePtr node = wrapper.AddElement(wrapper.GenerateNode("V"), root);
    xmlSetProp(node, reinterpret_cast<const xmlChar*>("v"), reinterpret_cast<const xmlChar*>(value.c_str()));
    std::string query = "/DATA/V[@v=" + XMLWrapper::GenerateConcatForXPath(value, false) + "]";
    EXPECT_EQ(wrapper.GetNodeFromXPath(query), node) << query;
  }
}

// --- Threads -----------------------------------------------------------------------------

// A wrapper frees its element trees itself: documents of every kind of node
// (namespaces, IDs, entities, CDATA, comments, processing instructions,
// attributes of several texts, generated nodes never placed) are made and
// dropped many times over, and what stays in memory still reads right.
TEST(XMLWrapperTest, DocumentsOfEveryKindOfNodeAreFreedCleanly) {
  const std::string text =
      "<?xml version=\"1.0\"?>\n<!DOCTYPE R [<!ENTITY e \"entity text\"><!ATTLIST X key ID #IMPLIED>]>\n"
      "<!-- first --><?pi data?>"
      "<R xmlns=\"urn:default\" xmlns:p=\"urn:p\" xml:id=\"root\"><p:A p:at=\"1\" b=\"x&amp;y&e;z\">text &e; more"
      "<![CDATA[<raw>]]><!-- c --><?target value?></p:A><X key=\"k1\"/><X key=\"k2\">&e;</X>"
      "<B>a very long text that does not fit inside its node</B></R><!-- last -->";
  Ref<XMLWrapper> keep = MakeRef<XMLWrapper>();
  keep->LoadXML("<?xml version=\"1.0\"?><KEEP a=\"1\"><V>kept value of some length</V></KEEP>");
  for (int round = 0; round < 300; ++round) {
    XMLWrapper wrapper;
    wrapper.LoadXML(text);
    wrapper.GenerateNode("LOOSE", Variant("never placed, with a long text"));
    xmlNodePtr placed = wrapper.GenerateNode("PLACED", Variant("x"));
    wrapper.AddElement(placed, xmlDocGetRootElement(wrapper.DOMDocument()));
    wrapper.CloneNode(xmlDocGetRootElement(wrapper.DOMDocument()), true);
    if (round == 0) {
      EXPECT_NE(wrapper.ToString().find("b=\"x&amp;y&e;z\""), std::string::npos);
      EXPECT_EQ(wrapper.GetNodesFromXPath("//*").size(), 6u);
    }
    XMLWrapper copy;
    copy.LoadXML(wrapper.ToString());
  }
  EXPECT_EQ(XMLWrapper::NodeText(keep->GetNodeFromXPath("/KEEP/V")), "kept value of some length");
  EXPECT_EQ(keep->GetAttributeFromNode(keep->GetNodeFromXPath("/KEEP"), "a"), "1");
}

TEST(XMLWrapperTest, WrappersOnSeparateThreadsDoNotMeet) {
  std::vector<std::thread> threads;
  std::vector<int> good(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &good] {
      for (int i = 0; i < 200; ++i) {
        XMLWrapper wrapper;
        std::string id = std::to_string(t * 1000 + i);
        wrapper.LoadXML("<DATA><RECORD id=\"" + id + "\"/></DATA>");
        try {
          wrapper.LoadXML("<DATA><broken></DATA>");
        } catch (const Error& e) {
          if (e.number() != 7704) continue;
        }
        try {
          wrapper.GetNodeFromXPath("//RECORD[@id='" + id + "']");
          wrapper.GetNodeFromXPath("//MISSING");
        } catch (const Error& e) {
          if (e.number() == 7703 && ShortDescription(e) == "[//MISSING] could not be found in document.")
            ++good[t];
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int count : good) EXPECT_EQ(count, 200);
}

}  // namespace
}  // namespace tessel
