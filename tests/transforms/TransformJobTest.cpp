// Whole jobs through the coordinator: orders read from CSV as headers with
// lines, mapped, filtered, flattened and written back as CSV, with what the
// audit log says about them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/transforms/TransformFixture.h"

namespace tessel::test {
namespace {

const char* kOrders =
    "type,order,item,qty\nH,10\nL,10,bolt,5\nL,10,nut,1\nH,11\nL,11,gear,1\nH,12\nL,12,cog,8\n";

// The map: H becomes ORDER and L becomes LINE, with a label and a line value.
TransformSpec MapStep(const std::string& lineValue, const std::string& action = {}) {
  TransformSpec map("map", "", 5);
  map.records =
      "<RECORD id=\"ORDER\" parentid=\"\" imptranid=\"H\"><FIELD name=\"ORDNO\" type=\"3\" impname=\"ORD\"/>"
      "<FIELD name=\"LABEL\" type=\"3\" eval=\"True\" value=\"&quot;Order &quot; &amp; %ORDNO\"/></RECORD>"
      "<RECORD id=\"LINE\" parentid=\"ORDER\" imptranid=\"L\"><FIELD name=\"ORDNO\" type=\"3\" impname=\"ORD\"/>"
      "<FIELD name=\"ITEM\" type=\"3\"/><FIELD name=\"QTY\" type=\"1\"/>"
      "<FIELD name=\"VALUE\" type=\"3\" eval=\"True\" value=\"" + lineValue + "\"/></RECORD>";
  map.audit["auditsummary"] = "%ORDER.PROCESSED orders, %LINE.PROCESSED lines, %LINE.ERRORS errors";
  if (!action.empty()) map.audit["actiontransformerror"] = action;
  return map;
}

TransformSpec FlattenStep() {
  TransformSpec flatten("flat", "", 3, "", {{"flattentranid", "ORDER"}});
  flatten.records =
      "<RECORD id=\"ORDER\" parentid=\"\"><FIELD name=\"ORDNO\" type=\"3\"/><FIELD name=\"LABEL\" type=\"3\"/>"
      "<FIELD name=\"ITEM\" type=\"3\" imptranid=\"LINE\" impname=\"ITEM\"/>"
      "<FIELD name=\"VALUE\" type=\"3\" imptranid=\"LINE\" impname=\"VALUE\"/></RECORD>";
  return flatten;
}

const char* kWriteRecords =
    "<RECORD id=\"ORDER\" parentid=\"\"><FIELD name=\"ORDNO\" type=\"3\" export=\"True\"/>"
    "<FIELD name=\"LABEL\" type=\"3\" export=\"True\"/><FIELD name=\"ITEM\" type=\"3\" export=\"True\"/>"
    "<FIELD name=\"VALUE\" type=\"3\" export=\"True\"/></RECORD>";

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST(TransformJobTest, MapFilterAndFlattenBetweenCsvReadAndWrite) {
  JobRun job;
  job.Input("orders.csv", kOrders);
  TransformSpec filter("filter", "", 13);
  filter.records =
      "<RECORD id=\"ORDER\" parentid=\"\"><FIELD name=\"ORDNO\" type=\"3\"/><FIELD name=\"LABEL\" type=\"3\"/>"
      "</RECORD><RECORD id=\"LINE\" parentid=\"ORDER\" filter=\"%QTY &gt; 1\"><FIELD name=\"ITEM\" type=\"3\"/>"
      "<FIELD name=\"QTY\" type=\"1\"/><FIELD name=\"VALUE\" type=\"3\"/></RECORD>";
  filter.audit["auditsummary"] = "%LINE.DELETED lines dropped";
  ASSERT_EQ(0, job.Run(kOrderReadRecords, 1, {MapStep("%QTY * 10"), filter, FlattenStep()}, kWriteRecords))
      << job.AllReasons();
  // Order 11 lost its only line and with it its flat record.
  EXPECT_EQ("ORDNO,LABEL,ITEM,VALUE\r\n10,Order 10,bolt,50\r\n12,Order 12,cog,80\r\n", job.Output());
  const std::string reasons = job.AllReasons();
  EXPECT_TRUE(Contains(reasons, "3 orders, 4 lines, 0 errors")) << reasons;
  EXPECT_TRUE(Contains(reasons, "2 lines dropped")) << reasons;
  EXPECT_TRUE(job.ReasonsWithCode("9650").empty());
}

TEST(TransformJobTest, FailingFormulasUnderActionTwoAreLoggedAndTheJobCompletes) {
  JobRun job;
  job.Input("orders.csv", kOrders);
  ASSERT_EQ(0, job.Run(kOrderReadRecords, 1, {MapStep("10 / (%QTY - 1)", "2"), FlattenStep()}, kWriteRecords))
      << job.AllReasons();
  // The lines of quantity 1 keep the formula's own text.
  EXPECT_EQ("ORDNO,LABEL,ITEM,VALUE\r\n10,Order 10,bolt,2.5\r\n10,Order 10,nut,10 / (%QTY - 1)\r\n"
            "11,Order 11,gear,10 / (%QTY - 1)\r\n12,Order 12,cog,1.42857142857143\r\n",
            job.Output());
  std::vector<std::string> errors = job.ReasonsWithCode("9650");
  ASSERT_EQ(2u, errors.size()) << job.AllReasons();
  for (const std::string& reason : errors) {
    EXPECT_TRUE(Contains(reason, "Error whilst evaluating field [VALUE] on transaction type [LINE]")) << reason;
    EXPECT_TRUE(Contains(reason, "Division by zero")) << reason;
  }
  EXPECT_TRUE(Contains(job.AllReasons(), "3 orders, 4 lines, 2 errors")) << job.AllReasons();
  EXPECT_EQ("Job completed successfully.", job.Reasons().back());
}

TEST(TransformJobTest, FailingFormulaUnderActionOneEndsTheJob) {
  JobRun job;
  job.Input("orders.csv", kOrders);
  EXPECT_EQ(11, job.Run(kOrderReadRecords, 1, {MapStep("10 / (%QTY - 1)"), FlattenStep()}, kWriteRecords));
  EXPECT_EQ(1u, job.ReasonsWithCode("9650").size()) << job.AllReasons();
  EXPECT_TRUE(Contains(job.AllReasons(), "Transformation [map] has terminated.")) << job.AllReasons();
  EXPECT_EQ("", job.Output());
}

}  // namespace
}  // namespace tessel::test
