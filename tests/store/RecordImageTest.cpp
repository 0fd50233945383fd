#include "store/RecordImage.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "store/DataNodes.h"
#include "store/TransactionFactory.h"
#include "store/XMLWrapper.h"
#include "store/XmlHeap.h"
#include "tests/store/StoreFixture.h"

namespace tessel {
namespace {

using test::kHeapInThisBuild;  // without a heap (AddressSanitizer) field names are texts of their own

// The nodes of a copy in document order: each element, its attributes and
// their texts of their own, then its children.
void CollectNodes(xmlNodePtr element, std::vector<const void*>& nodes) {
  nodes.push_back(element);
  for (xmlAttrPtr a = element->properties; a != nullptr; a = a->next) {
    nodes.push_back(a);
    if (a->children != nullptr && !XmlHeap::IsCounted(a->children)) nodes.push_back(a->children);
  }
  for (xmlNodePtr child = element->children; child != nullptr; child = child->next) CollectNodes(child, nodes);
}

// Every field of every node of `copy` is what `general` has at the same
// place: links lead to the nodes at the same places, everything else is
// equal (a text's text inside its node in both or in neither).
void ExpectSameFields(xmlNodePtr copy, xmlNodePtr general) {
  std::vector<const void*> ours;
  std::vector<const void*> theirs;
  CollectNodes(copy, ours);
  CollectNodes(general, theirs);
  ASSERT_EQ(ours.size(), theirs.size());
  std::unordered_map<const void*, const void*> place;
  for (size_t i = 0; i < ours.size(); ++i) place.emplace(ours[i], theirs[i]);
  auto same = [&](const void* mine, const void* other) {
    auto found = place.find(mine);
    return found != place.end() ? found->second == other : mine == other;
  };
  for (size_t i = 0; i < ours.size(); ++i) {
    auto* n = static_cast<const xmlNode*>(ours[i]);
    auto* g = static_cast<const xmlNode*>(theirs[i]);
    SCOPED_TRACE("node " + std::to_string(i));
    ASSERT_EQ(n->type, g->type);
    EXPECT_EQ(n->_private, g->_private);
    EXPECT_EQ(n->name, g->name);
    EXPECT_TRUE(same(n->children, g->children));
    EXPECT_TRUE(same(n->last, g->last));
    EXPECT_TRUE(same(n->parent, g->parent));
    EXPECT_TRUE(same(n->next, g->next));
    EXPECT_TRUE(same(n->prev, g->prev));
    EXPECT_EQ(n->doc, g->doc);
    if (n->type == XML_ATTRIBUTE_NODE) {
      auto* na = static_cast<const xmlAttr*>(ours[i]);
      auto* ga = static_cast<const xmlAttr*>(theirs[i]);
      EXPECT_EQ(na->ns, ga->ns);
      EXPECT_EQ(na->atype, ga->atype);
      EXPECT_EQ(na->psvi, ga->psvi);
      continue;
    }
    EXPECT_EQ(n->ns, g->ns);
    EXPECT_EQ(n->psvi, g->psvi);
    EXPECT_EQ(n->line, g->line);
    EXPECT_EQ(n->extra, g->extra);
    if (n->type == XML_TEXT_NODE) {
      EXPECT_STREQ(reinterpret_cast<const char*>(n->content), reinterpret_cast<const char*>(g->content));
      continue;
    }
    EXPECT_EQ(n->content, g->content);
    EXPECT_TRUE(same(n->properties, g->properties));
    EXPECT_EQ(n->nsDef, g->nsDef);
  }
}

// A document of templates and a data document sharing its dictionary, as
// the factory keeps them.
class RecordImageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    templates.CreateDocument();
    data.CreateDocument();
    data.DOMDocument()->dict = xmlDictCreate();
    xmlDocPtr doc = templates.DOMDocument();
    doc->dict = data.DOMDocument()->dict;
    xmlDictReference(doc->dict);
    ASSERT_EQ(XmlHeap::Installed(), kHeapInThisBuild);
  }

  // An empty RECORD of `fields` fields as the factory makes it, kept in the
  // template document: short names (shared, counted texts) and long ones
  // (texts of each attribute's own) by turns.
  xmlNodePtr Template(int fields) {
    xmlNodePtr model = templates.GenerateNode("RECORD");
    for (int f = 0; f < fields; ++f) {
      const std::string name = f % 2 == 0 ? "F" + std::to_string(f) : "FIELD_" + std::to_string(f) + "_with_a_long_name";
      xmlNodePtr field = TransactionFactory::InitFldNode(templates.DOMDocument(), name);
      // A short text of the attribute's own, inside its node.
      if (f % 3 == 0) DataNodes::SetAttribute(field, "tag", "t" + std::to_string(f));
      xmlAddChild(model, field);
    }
    return model;
  }

  // Every attribute text of `copy` is the template's shared text or a text
  // of the copy's own, whose text is not the template's memory (unless the
  // dictionary's).
  void ExpectOwnTexts(xmlNodePtr copy, xmlNodePtr model) {
    for (xmlNodePtr c = copy, m = model; c != nullptr && m != nullptr; c = c->next, m = m->next) {
      for (xmlAttrPtr ca = c->properties, ma = m->properties; ca != nullptr && ma != nullptr;
           ca = ca->next, ma = ma->next) {
        xmlNodePtr text = ca->children;
        ASSERT_NE(text, nullptr);
        if (text == ma->children) continue;
        EXPECT_EQ(text->parent, reinterpret_cast<xmlNodePtr>(ca));
        if (xmlDictOwns(data.DOMDocument()->dict, text->content) != 1) {
          EXPECT_NE(text->content, ma->children->content);
        }
      }
      ExpectOwnTexts(c->children, m->children);
    }
  }

  static std::string Xml(xmlNodePtr node) { return XMLWrapper::NodeXml(node); }

  XMLWrapper templates;
  XMLWrapper data;
};

// A copy is the tree the general copy makes, belongs to the data document
// and stands nowhere: also when more templates were added after the image
// was made, which links the template's root to them.
TEST_F(RecordImageTest, ACopyIsTheTemplatesTreeInTheTargetDocument) {
  for (int fields : {0, 1, 7, 120}) {
    xmlNodePtr model = Template(fields);
    auto image = RecordImage::Make(model);
    ASSERT_NE(image, nullptr) << fields;
    xmlNodePtr later = Template(2);  // the root gains a next sibling
    ASSERT_EQ(model->next, later);
    ASSERT_TRUE(image->CopiesInto(data.DOMDocument()));
    xmlNodePtr copy = image->Copy(data.DOMDocument());
    xmlNodePtr general = DataNodes::CloneElement(data.DOMDocument(), model);
    EXPECT_EQ(Xml(copy), Xml(general));
    EXPECT_EQ(copy->parent, nullptr);
    EXPECT_EQ(copy->next, nullptr);
    EXPECT_EQ(copy->prev, nullptr);
    int nodes = 0;
    std::vector<xmlNodePtr> pending = {copy};
    while (!pending.empty()) {
      xmlNodePtr node = pending.back();
      pending.pop_back();
      ++nodes;
      EXPECT_EQ(node->doc, data.DOMDocument());
      for (xmlAttrPtr a = node->properties; a != nullptr; a = a->next) {
        EXPECT_EQ(a->doc, data.DOMDocument());
        EXPECT_EQ(a->parent, node);
      }
      for (xmlNodePtr child = node->children; child != nullptr; child = child->next) {
        EXPECT_EQ(child->parent, node);
        if (child->next != nullptr) {
          EXPECT_EQ(child->next->prev, child);
        }
        pending.push_back(child);
      }
    }
    EXPECT_EQ(nodes, 1 + 2 * fields);  // elements; attributes and their texts are checked above
    ExpectOwnTexts(copy, model);
    xmlFreeNode(copy);
    xmlFreeNode(general);
  }
}

// Copies are separate trees: filled, linked and freed, they leave the
// template and the other copies as they were, and the shared name texts
// live on with the template.
TEST_F(RecordImageTest, CopiesAreIndependentAndFreeingThemKeepsTheTemplate) {
  xmlNodePtr model = Template(10);
  const std::string before = Xml(model);
  auto image = RecordImage::Make(model);
  ASSERT_NE(image, nullptr);
  xmlNodePtr root = data.GenerateNode("DATA");
  std::vector<xmlNodePtr> copies;
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 500; ++i) {
      xmlNodePtr copy = image->Copy(data.DOMDocument());
      xmlNodePtr values = copy->children->children;  // the first field's VALUES
      xmlNewChild(values, nullptr, BAD_CAST "VALUE", BAD_CAST std::to_string(i).c_str());
      xmlSetProp(copy, BAD_CAST "timestamp", BAD_CAST "x");
      if (i % 2 == 0) xmlAddChild(root, copy);
      copies.push_back(copy);
    }
    EXPECT_EQ(Xml(model), before);
    EXPECT_NE(Xml(copies[1]).find("<VALUE>1</VALUE>"), std::string::npos);
    for (xmlNodePtr copy : copies) {
      xmlUnlinkNode(copy);
      xmlFreeNode(copy);
    }
    copies.clear();
    // The names the copies shared are still the template's, also when
    // memory for new shared texts is asked for.
    std::vector<xmlNodePtr> others;
    for (int i = 0; i < 200; ++i) others.push_back(DataNodes::NewSharedText("zz" + std::to_string(i % 10)));
    EXPECT_EQ(Xml(model), before);
    for (xmlNodePtr other : others) xmlFreeNode(other);
  }
  xmlNodePtr last = image->Copy(data.DOMDocument());
  xmlNodePtr general = DataNodes::CloneElement(data.DOMDocument(), model);
  EXPECT_EQ(Xml(last), Xml(general));
  xmlFreeNode(last);
  xmlFreeNode(general);
}

// Templates with anything a byte copy would get wrong have no image, and a
// document with another dictionary takes no copy.
TEST_F(RecordImageTest, OnlyPlainTemplatesHaveAnImage) {
  xmlNodePtr withText = Template(2);
  xmlAddChild(withText->children, xmlNewDocText(templates.DOMDocument(), BAD_CAST "text"));
  EXPECT_EQ(RecordImage::Make(withText), nullptr);

  xmlNodePtr plainAttribute = Template(2);
  xmlNewProp(plainAttribute->children, BAD_CAST "note", BAD_CAST "not shared");
  EXPECT_EQ(RecordImage::Make(plainAttribute), nullptr);

  xmlNodePtr withNamespace = Template(1);
  xmlNsPtr ns = xmlNewNs(withNamespace, BAD_CAST "urn:x", BAD_CAST "x");
  EXPECT_EQ(RecordImage::Make(withNamespace), nullptr);
  xmlSetNs(withNamespace, ns);
  EXPECT_EQ(RecordImage::Make(withNamespace), nullptr);

  EXPECT_EQ(RecordImage::Make(nullptr), nullptr);

  auto image = RecordImage::Make(Template(3));
  ASSERT_NE(image, nullptr);
  XMLWrapper other;
  other.CreateDocument();
  other.DOMDocument()->dict = xmlDictCreate();
  EXPECT_FALSE(image->CopiesInto(other.DOMDocument()));
  EXPECT_FALSE(image->CopiesInto(nullptr));
  EXPECT_TRUE(image->CopiesInto(data.DOMDocument()));
}

// Field for field, a copy is the general copy: the factory's templates.
TEST_F(RecordImageTest, ACopyIsTheGeneralCopyFieldForField) {
  for (int fields : {0, 1, 7, 40}) {
    xmlNodePtr model = Template(fields);
    DataNodes::SetAttribute(model, "kind", "k");
    auto image = RecordImage::Make(model);
    ASSERT_NE(image, nullptr);
    Template(1);
    xmlNodePtr copy = image->Copy(data.DOMDocument());
    xmlNodePtr general = DataNodes::CloneElement(data.DOMDocument(), model);
    ExpectSameFields(copy, general);
    xmlFreeNode(copy);
    xmlFreeNode(general);
  }
}

// A template read from text carries the lines it was read from; a record
// made from it was read from nowhere, as the general copy says.
TEST_F(RecordImageTest, ACopyTakesNoLineNumbersFromTheTemplate) {
  const std::string text = "<RECORD>\n<FIELD name=\"ab\"><VALUES/></FIELD>\n<FIELD name=\"cd\"><VALUES/></FIELD>\n</RECORD>";
  xmlDocPtr read = xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, XML_PARSE_NOBLANKS);
  ASSERT_NE(read, nullptr);
  ASSERT_NE(read->dict, nullptr);
  xmlDocPtr target = xmlNewDoc(BAD_CAST "1.0");
  target->dict = read->dict;
  xmlDictReference(target->dict);
  xmlNodePtr model = xmlDocGetRootElement(read);
  ASSERT_EQ(xmlGetLineNo(model->children), 2);
  // Made as the factory makes records: from the image when there is one.
  auto image = RecordImage::Make(model);
  xmlNodePtr copy = image != nullptr && image->CopiesInto(target) ? image->Copy(target)
                                                                  : DataNodes::CloneElement(target, model);
  xmlNodePtr general = DataNodes::CloneElement(target, model);
  EXPECT_EQ(xmlGetLineNo(copy->children), xmlGetLineNo(general->children));
  ExpectSameFields(copy, general);
  xmlFreeNode(copy);
  xmlFreeNode(general);
  xmlFreeDoc(target);
  xmlFreeDoc(read);
}

}  // namespace
}  // namespace tessel
