#include <gtest/gtest.h>

#include "store/Attributes.h"
#include "tests/store/StoreFixture.h"

namespace tessel {
namespace {

using test::CatchError;
using test::MakeFactory;
using test::TopContext;

TEST(TransactionContextTest, ContextReadsBackAsTheNodesPath) {
  auto factory = MakeFactory();
  Ref<TransactionContext> context = factory->Data()->CreateContext();
  context->SetContext("/DATA");
  EXPECT_EQ(context->Context(), "//DATA");
  EXPECT_EQ(CatchError([&] { context->SetContext("/NOPE"); }).number(), 7703);
}

TEST(TransactionContextTest, DepthAndNodesByPosition) {
  auto factory = MakeFactory();
  auto context = TopContext(*factory, true);
  EXPECT_EQ(context->ContextDepth(), 2);
  test::AddOrder(*factory, *context, "1");
  EXPECT_EQ(context->ContextDepth(), 4);
  EXPECT_EQ(context->NodeByPosition(4), context->ContextNode());
  EXPECT_EQ(context->NodeByPosition(1)->type, XML_DOCUMENT_NODE);
  EXPECT_STREQ(reinterpret_cast<const char*>(context->NodeByPosition(3)->name), "RECORDS");
  EXPECT_EQ(CatchError([&] { context->NodeByPosition(5); }).number(), 8050);
  EXPECT_EQ(CatchError([&] { context->NodeByPosition(0); }).number(), 8050);
}

TEST(TransactionContextTest, AddElementWithAContextInsertsThereAndFollows) {
  XMLWrapper wrapper;
  wrapper.LoadXML("<A><B/></A>");
  Ref<TransactionContext> context = wrapper.CreateContext();
  context->SetContext("/A/B");
  xmlNodePtr c = wrapper.GenerateNode("C");
  wrapper.AddElement(c, nullptr, context.get());
  EXPECT_EQ(context->Context(), "//A/B");
  context->SetAutoUpdate(true);
  xmlNodePtr d = wrapper.GenerateNode("D");
  wrapper.AddElement(d, nullptr, context.get());
  EXPECT_EQ(context->Context(), "//A/B/D");
  EXPECT_EQ(wrapper.ToString(), "<A><B><C/><D/></B></A>\n");
}

TEST(AttributesTest, AddReadAndReplace) {
  Ref<Attributes> bag = MakeRef<Attributes>();
  EXPECT_EQ(CatchError([&] { bag->GetAttributes(); }).number(), 91);
  EXPECT_EQ(bag->AttributeByName("a"), "");
  bag->Add("a", Variant("1"));
  bag->Add("b", Variant::Null());
  EXPECT_TRUE(bag->HasAttribute("b"));
  EXPECT_EQ(bag->AttributeByName("b"), "");
  bag->Add("a", Variant("2"));
  EXPECT_EQ(bag->AttributeByName("a"), "2");
  EXPECT_EQ(bag->GetAttributes().size(), 2u);
  bag->RemoveAll();
  EXPECT_EQ(bag->GetAttributes().size(), 0u);
}

TEST(AttributesTest, CopyingMovesTheAttributes) {
  XMLWrapper wrapper;
  wrapper.LoadXML("<A x=\"old\"/>");
  Ref<Attributes> bag = MakeRef<Attributes>();
  bag->Add("x", Variant("new"));
  bag->Add("y", Variant(int32_t{3}));
  xmlNodePtr a = wrapper.GetNodeFromXPath("/A");
  bag->CopyAttributesOntoNode(a);
  EXPECT_EQ(wrapper.ToString(), "<A x=\"new\" y=\"3\"/>\n");
  EXPECT_EQ(bag->GetAttributes().size(), 0u);
  xmlNodePtr b = wrapper.GenerateNode("B", Variant(), bag.get());
  EXPECT_EQ(b->properties, nullptr);  // a second copy finds nothing
}

TEST(AttributesTest, ABoundBagWorksOnItsElement) {
  XMLWrapper wrapper;
  wrapper.LoadXML("<A k=\"v\"/>");
  Ref<Attributes> bag = MakeRef<Attributes>();
  bag->SetXNode(wrapper.GetNodeFromXPath("/A"));
  EXPECT_EQ(bag->AttributeByName("k"), "v");
  bag->Add("n", Variant("m"));
  EXPECT_EQ(wrapper.ToString(), "<A k=\"v\" n=\"m\"/>\n");
}

}  // namespace
}  // namespace tessel
