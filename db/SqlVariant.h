// SqlVariant: conversion between database values and script Variants.
//
// Reading, a field becomes the Variant subtype its column type suggests:
// NULL is Null; booleans Boolean; integers Long when they fit 32 bits and
// Decimal otherwise; reals Double; decimal columns Decimal; date, time and
// timestamp columns Date (text that does not read as a date stays String);
// bytes an array of Byte; all other text String.
//
// Writing, a Variant becomes a parameter: Empty and Null are NULL; Boolean
// stays boolean; Byte, Integer and Long are integers; Single and Double reals;
// Currency and Decimal their exact text; a Date its ISO text
// ("2024-02-29", "2024-02-29 13:05:00", "13:05:00" for a time alone, with
// ".mmm" when there are milliseconds); an array of Byte (or of small whole
// numbers) bytes; an object its default value. Other arrays and Error values
// raise kConversionFailed.
#pragma once

#include <span>

#include "core/Variant.h"
#include "db/SqlValue.h"

namespace tessel::db {

class SqlVariant {
 public:
  static Variant ToVariant(const SqlValue& value, FieldType type);
  static SqlValue ToSqlValue(const Variant& value);
  static Params ToParams(std::span<const Variant> values);

  // Serial of ISO text "yyyy-mm-dd", "yyyy-mm-dd hh:mm:ss[.fff...]" (or with
  // "T"), "hh:mm:ss[.fff]"; a trailing zone offset is ignored. nullopt when
  // the text is not of that form.
  static std::optional<double> ParseIsoDate(std::string_view text);
  // ISO text of a serial, as described above.
  static std::string FormatIsoDate(double serial);
};

}  // namespace tessel::db
