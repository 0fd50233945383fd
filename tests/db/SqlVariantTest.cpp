// Database values as script Variants, on every backend and alone.
#include <gtest/gtest.h>

#include "core/DateTime.h"
#include "core/Error.h"
#include "core/SafeArray.h"
#include "db/SqlVariant.h"
#include "tests/db/BackendFixture.h"

namespace tessel::db::test {
namespace {

double Serial(int y, int mo, int d, int h = 0, int mi = 0, int s = 0, int ms = 0) {
  return *DateTime::FromParts(DateParts{y, mo, d, h, mi, s, ms});
}

class SqlVariantBackendTest : public BackendFixture {};

TEST_P(SqlVariantBackendTest, VariantsGoInAndComeBackTyped) {
  auto c = Open();
  c->Execute("create table V (ID integer, L integer, BIGV bigint, R double precision, S varchar(50), "
             "DT date, TS varchar(30), DEC numeric(10,2), N integer, B " + BinaryType() + ")");
  std::vector<Variant> in = {Variant(1),
                             Variant(-42),
                             Variant::FromDecimal(Decimal::FromInt64(int64_t{1} << 40)),
                             Variant(2.5),
                             Variant("Zoë"),
                             Variant("2024-02-29"),
                             Variant::FromDate(Serial(2024, 2, 29, 13, 5, 0)),
                             Variant::FromCurrency(Currency::FromRaw(123400)),
                             Variant::Null(),
                             Variant::FromVector({Variant::FromByte(0), Variant::FromByte(200)})};
  c->Execute("insert into V (ID, L, BIGV, R, S, DT, TS, DEC, N, B) values (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
             SqlVariant::ToParams(in));
  auto rs = c->OpenRecordset("select L, BIGV, R, S, DT, TS, DEC, N, B from V");
  ASSERT_FALSE(rs->IsEOF());

  Variant l = rs->Field("L");
  EXPECT_EQ(VarType::Long, l.Type());
  EXPECT_EQ(-42, l.LongValue());

  Variant big = rs->Field("BIGV");
  EXPECT_EQ(VarType::Decimal, big.Type());
  EXPECT_EQ("1099511627776", big.DecimalValue().ToString());

  EXPECT_EQ(VarType::Double, rs->Field("R").Type());
  EXPECT_EQ(2.5, rs->Field("R").DoubleValue());
  EXPECT_EQ("Zoë", rs->Field("S").StringValue());

  Variant date = rs->Field("DT");
  ASSERT_EQ(VarType::Date, date.Type()) << date.TypeName();
  EXPECT_EQ(Serial(2024, 2, 29), date.DateValue());

  Variant stamp = rs->Field("TS");  // a text column keeps text
  EXPECT_EQ(VarType::String, stamp.Type());
  EXPECT_EQ("2024-02-29 13:05:00", stamp.StringValue());

  Variant dec = rs->Field("DEC");
  if (GetParam() == "odbc_sqlite") {
    // The SQLite ODBC driver describes numeric columns as double.
    EXPECT_EQ(12.34, dec.ToDouble());
  } else {
    ASSERT_EQ(VarType::Decimal, dec.Type()) << dec.TypeName();
    EXPECT_EQ("12.34", dec.DecimalValue().ToString());
  }

  EXPECT_TRUE(rs->Field("N").IsNull());

  Variant bytes = rs->Field("B");
  ASSERT_TRUE(bytes.IsArray());
  ASSERT_EQ(2u, bytes.ArrayValue().Count());
  EXPECT_EQ(200, bytes.ArrayValue().Elements()[1].ByteValue());
  EXPECT_EQ(kItemNotFound, [&] {
    try {
      rs->Field("NOPE");
    } catch (const Error& e) {
      return e.number();
    }
    return 0;
  }());
}

INSTANTIATE_TEST_SUITE_P(Backends, SqlVariantBackendTest,
                         ::testing::Values("sqlite", "postgres", "odbc_sqlite", "odbc_postgres"), BackendName);

TEST(SqlVariantTest, IsoDatesReadAndWrite) {
  EXPECT_EQ(Serial(2024, 2, 29), SqlVariant::ParseIsoDate("2024-02-29"));
  EXPECT_EQ(Serial(2024, 2, 29, 13, 5, 7), SqlVariant::ParseIsoDate("2024-02-29 13:05:07"));
  EXPECT_EQ(Serial(2024, 2, 29, 13, 5, 7, 250), SqlVariant::ParseIsoDate("2024-02-29T13:05:07.25+01"));
  EXPECT_EQ(Serial(1899, 12, 30, 8, 30), SqlVariant::ParseIsoDate("08:30:00"));
  EXPECT_EQ(std::nullopt, SqlVariant::ParseIsoDate("2024-02-30"));
  EXPECT_EQ(std::nullopt, SqlVariant::ParseIsoDate("2024-02-29 13:05:00:123"));  // the log's own form is text
  EXPECT_EQ(std::nullopt, SqlVariant::ParseIsoDate("29/02/2024"));
  EXPECT_EQ(std::nullopt, SqlVariant::ParseIsoDate(""));

  EXPECT_EQ("2024-02-29", SqlVariant::FormatIsoDate(Serial(2024, 2, 29)));
  EXPECT_EQ("2024-02-29 13:05:07", SqlVariant::FormatIsoDate(Serial(2024, 2, 29, 13, 5, 7)));
  EXPECT_EQ("2024-02-29 13:05:07.120", SqlVariant::FormatIsoDate(Serial(2024, 2, 29, 13, 5, 7, 120)));
  EXPECT_EQ("08:30:00", SqlVariant::FormatIsoDate(Serial(1899, 12, 30, 8, 30)));
}

TEST(SqlVariantTest, ParametersFromVariants) {
  EXPECT_TRUE(IsNull(SqlVariant::ToSqlValue(Variant())));
  EXPECT_TRUE(IsNull(SqlVariant::ToSqlValue(Variant::Null())));
  EXPECT_EQ(SqlValue(true), SqlVariant::ToSqlValue(Variant(true)));
  EXPECT_EQ(SqlValue(int64_t{7}), SqlVariant::ToSqlValue(Variant::FromInteger(7)));
  EXPECT_EQ(SqlValue(std::string("-1.5")), SqlVariant::ToSqlValue(Variant::FromCurrency(Currency::FromRaw(-15000))));
  EXPECT_EQ(SqlValue(Blob{1, 2}), SqlVariant::ToSqlValue(Variant::FromVector({Variant(1), Variant(2)})));
  EXPECT_THROW(SqlVariant::ToSqlValue(Variant::FromVector({Variant("a")})), Error);
  EXPECT_THROW(SqlVariant::ToSqlValue(Variant::Missing()), Error);
}

TEST(SqlVariantTest, FieldsToVariants) {
  EXPECT_EQ(VarType::Boolean, SqlVariant::ToVariant(SqlValue(int64_t{1}), FieldType::Boolean).Type());
  EXPECT_EQ(VarType::Long, SqlVariant::ToVariant(SqlValue(int64_t{INT32_MAX}), FieldType::Integer).Type());
  EXPECT_EQ(VarType::Decimal, SqlVariant::ToVariant(SqlValue(int64_t{INT32_MAX} + 1), FieldType::Integer).Type());
  EXPECT_EQ(VarType::String, SqlVariant::ToVariant(SqlValue(std::string("soon")), FieldType::Date).Type());
  Variant huge = SqlVariant::ToVariant(SqlValue(std::string("1e40")), FieldType::Decimal);
  EXPECT_EQ(VarType::Double, huge.Type());
}

}  // namespace
}  // namespace tessel::db::test
