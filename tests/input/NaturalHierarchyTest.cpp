// Natural hierarchies: a reader whose source is already a tree is copied
// record by record into the data document. The tree reader here stands in
// for the tree-shaped readers of the engine.
#include <gtest/gtest.h>

#include <map>

#include "input/IHeirachicalDataIterator.h"
#include "input/IImportReader.h"
#include "input/StructuredReader.h"
#include "tests/input/ReadFixture.h"

namespace tessel::test {
namespace {

struct Node {
  std::map<std::string, std::string> fields;
  std::map<std::string, std::vector<Node>> children;
};

// Data sets of trees, walked as the iterator contract says.
class TreeReader : public IImportReader, public IHeirachicalDataIterator {
 public:
  explicit TreeReader(std::vector<std::vector<Node>> sets) : sets_(std::move(sets)) {}

  void InitClass(std::shared_ptr<TransformDefinition>, std::shared_ptr<IInputOutputController>, bool) override {}
  void MoveNext() override {
    ++set_;
    levels_.clear();
    if (set_ < sets_.size()) levels_.push_back(Level{&sets_[set_], -1});
  }
  Variant Item(xmlNodePtr fieldNode) override {
    xmlChar* name = xmlGetProp(fieldNode, reinterpret_cast<const xmlChar*>("name"));
    std::string key(reinterpret_cast<const char*>(name));
    xmlFree(name);
    const Node& node = Current();
    auto found = node.fields.find(key);
    return found == node.fields.end() ? Variant() : Variant(found->second);
  }
  Variant FieldByPosition(int32_t) override { return Variant(); }
  bool EOF_() override { return set_ != static_cast<size_t>(-1) && set_ >= sets_.size(); }
  void ValidateRecord(xmlNodePtr) override {}
  std::string Source() override { return "tree" + std::to_string(set_); }

  void MoveChild(std::string_view recordId) override {
    static std::vector<Node> none;
    auto& children = Current().children;
    auto found = children.find(std::string(recordId));
    levels_.push_back(Level{found == children.end() ? &none : &found->second, -1});
  }
  int32_t RecordCount() override { return static_cast<int32_t>(levels_.back().siblings->size()); }
  void MoveNextRecord() override { ++levels_.back().index; }
  void MoveParent() override { levels_.pop_back(); }

 private:
  struct Level {
    std::vector<Node>* siblings;
    int index;
  };
  Node& Current() { return (*levels_.back().siblings)[static_cast<size_t>(levels_.back().index)]; }

  std::vector<std::vector<Node>> sets_;
  size_t set_ = static_cast<size_t>(-1);
  std::vector<Level> levels_;
};

TEST(NaturalHierarchy, TreesAreCopiedWithChildrenUnderTheirParents) {
  Node order1{{{"T", "H"}, {"ORD", "1"}}, {{"L", {Node{{{"ORD", "1"}, {"ITEM", "a"}}, {}},
                                                  Node{{{"ORD", "1"}, {"ITEM", "b"}}, {}}}}}};
  Node order2{{{"T", "H"}, {"ORD", "2"}}, {}};
  Node order3{{{"T", "H"}, {"ORD", "3"}}, {{"L", {Node{{{"ORD", "3"}, {"ITEM", "c"}}, {}}}}}};
  auto reader = std::make_shared<TreeReader>(std::vector<std::vector<Node>>{{order1, order2}, {order3}});

  auto factory = std::make_shared<TransactionFactory>();
  factory->SetTransformDefinition(DefinitionFrom(ReadTransformXml("nat", "", {{"heircarchical", "2"}}, kOrderRecords)));
  CountingEvent events;
  StructuredReader structured;
  structured.InitClass(factory->TransformDefinition(), factory, reader, &events);
  structured.Read();

  XMLWrapper& data = *factory->Data();
  EXPECT_EQ((std::vector<std::string>{"1", "2", "3"}),
            Texts(data, "/DATA/RECORDS[@id='H']/RECORD/FIELD[@name='ORD']/VALUES/VALUE"));
  EXPECT_EQ((std::vector<std::string>{"a", "b"}),
            Texts(data, "/DATA/RECORDS[@id='H']/RECORD[1]/RECORDS[@id='L']/RECORD/FIELD[@name='ITEM']/VALUES/VALUE"));
  EXPECT_TRUE(data.GetNodesFromXPath("/DATA/RECORDS[@id='H']/RECORD[2]/RECORDS").empty());
  EXPECT_EQ((std::vector<std::string>{"c"}),
            Texts(data, "/DATA/RECORDS[@id='H']/RECORD[3]/RECORDS[@id='L']/RECORD/FIELD[@name='ITEM']/VALUES/VALUE"));
  EXPECT_EQ(6, events.processed);
}

}  // namespace
}  // namespace tessel::test
