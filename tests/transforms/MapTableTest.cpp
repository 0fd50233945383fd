// MapTable: pairs of strings looked up either way.
#include <gtest/gtest.h>

#include <string>

#include "transforms/MapTable.h"

namespace tessel::test {
namespace {

TEST(MapTableTest, LooksUpEitherWayAndTakesTheFirstExactMatch) {
  MapTable table;
  EXPECT_EQ("", table.Lookup("A"));
  table.Add("IN1", "OUT1");
  table.Add("IN2", "OUT2");
  table.Add("IN1", "OTHER");
  EXPECT_EQ("OUT1", table.Lookup("IN1"));
  EXPECT_EQ("OUT2", table.Lookup("IN2"));
  EXPECT_EQ("IN2", table.Lookup("OUT2", true));
  EXPECT_EQ("IN1", table.Lookup("OTHER", true));
  EXPECT_EQ("", table.Lookup("in1"));
  EXPECT_EQ("", table.Lookup("OUT1"));
}

TEST(MapTableTest, GrowsWithoutLosingPairs) {
  MapTable table;
  for (int i = 0; i < 3; ++i) table.Add("k" + std::to_string(i), "v" + std::to_string(i));
  EXPECT_EQ(4, table.Capacity());
  table.Add("k3", "v3");
  EXPECT_EQ(8, table.Capacity());
  for (int i = 4; i < 100; ++i) table.Add("k" + std::to_string(i), "v" + std::to_string(i));
  EXPECT_EQ(100, table.Count());
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ("v" + std::to_string(i), table.Lookup("k" + std::to_string(i)));
    EXPECT_EQ("k" + std::to_string(i), table.Lookup("v" + std::to_string(i), true));
  }
}

TEST(MapTableTest, RemoveBlanksEveryPairOfTheKeyInPlace) {
  MapTable table;
  table.Add("A", "1");
  table.Add("B", "2");
  table.Add("A", "3");
  table.Remove("A");
  EXPECT_EQ(3, table.Count());
  EXPECT_EQ("", table.Lookup("A"));
  EXPECT_EQ("", table.Lookup("3", true));
  EXPECT_EQ("2", table.Lookup("B"));
  EXPECT_EQ("B", table.Lookup("2", true));
}

}  // namespace
}  // namespace tessel::test
