// Token: one piece of an expression cut by StringTokeniser: an operand (the
// text between delimiters, type kOperand) or a delimiter (type kDelimiter).
//
// Tokens travel through a Stack as objects, so Token is an Object; its
// default value is its text. The text is the `Token` property of scripts;
// C++ calls it Text() as a member cannot share the class's name.
#pragma once

#include <cstdint>
#include <string>

#include "core/Object.h"

namespace tessel {

class Token : public Object {
 public:
  static constexpr int32_t kDelimiter = 0;
  static constexpr int32_t kOperand = 1;

  Token() = default;
  Token(int32_t type, std::string text) : type_(type), text_(std::move(text)) {}

  std::string TypeName() const override { return "Token"; }
  DispId GetMemberId(std::string_view name) override;
  Variant Invoke(DispId id, InvokeKind kind, std::span<Variant> args) override;

  int32_t TokenType() const { return type_; }
  void SetTokenType(int32_t type) { type_ = type; }
  const std::string& Text() const { return text_; }
  void SetText(std::string text) { text_ = std::move(text); }

 private:
  int32_t type_ = kOperand;
  std::string text_;
};

}  // namespace tessel
