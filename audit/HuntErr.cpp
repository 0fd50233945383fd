#include "audit/HuntErr.h"

#include <cxxabi.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <system_error>
#include <typeinfo>

#include "audit/ErrorRecord.h"
#include "audit/IErrorConnection.h"

namespace tessel {
namespace {

constexpr std::string_view kCrLf = "\r\n";
constexpr char kEscape = '\x08';
constexpr std::string_view kCheckSource = "HuntERR.Check";
constexpr std::string_view kErrorInSource = "HuntERR.ErrorIn";
constexpr std::string_view kProgramTitle = "tessel";
constexpr std::string_view kProgramVersion = "1.96.0";
constexpr int32_t kObjectError = static_cast<int32_t>(0x80040000);
constexpr size_t kFrameWidth = 100;
constexpr size_t kLongValue = 40;

constexpr std::string_view kHeaderTemplate =
    "%Descr% %nl%  Time='%Time%' App='%App%:%Ver%' ADO-version='%ADOVersion%' "
    "Computer='%Comp%' %nl%  Method: %MethodName% %nl%  Number: %ErrNum% = &H%ErrHex% = "
    "vbObjectError %ErrNumRel1% = ERRMAP_APP_FIRST %ErrNumRel2% %ErrStd%%nl%  Source: "
    "%Source% %nl%  Description: %Descr%%nl%";

void ReplaceAll(std::string& text, std::string_view from, std::string_view to) {
  if (from.empty()) return;
  size_t pos = 0;
  while ((pos = text.find(from, pos)) != std::string::npos) {
    text.replace(pos, from.size(), to);
    pos += to.size();
  }
}

std::string Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  size_t last = text.find_last_not_of(kBlanks);
  return std::string(text.substr(first, last - first + 1));
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    char a = text[i];
    if (a >= 'A' && a <= 'Z') a = static_cast<char>(a - 'A' + 'a');
    if (a != prefix[i]) return false;
  }
  return true;
}

std::string Demangle(const char* name) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> out(abi::__cxa_demangle(name, nullptr, nullptr, &status),
                                              std::free);
  return status == 0 && out ? std::string(out.get()) : std::string(name);
}

// Converts any exception into the error it reports. Foreign exceptions lose
// their type but keep their text, under the general number.
Error FromException(const std::exception_ptr& ep, int32_t* apiCode) {
  try {
    std::rethrow_exception(ep);
  } catch (const Error& e) {
    return e;
  } catch (const std::system_error& e) {
    if (apiCode) *apiCode = e.code().value();
    return Error(Error::kGeneral, e.what(), Demangle(typeid(e).name()));
  } catch (const std::exception& e) {
    return Error(Error::kGeneral, e.what(), Demangle(typeid(e).name()));
  } catch (...) {
    return Error(Error::kGeneral, "Unknown exception", std::string(kProgramTitle));
  }
}

Error RestoredError(const ErrorRecord::Restored& r) {
  return Error(r.number, r.description, r.source, r.helpFile, r.helpContext);
}

void SetRestored(ErrorRecord& rec, int32_t number, std::string source, std::string description,
                 std::string helpFile, std::string helpContext) {
  rec.current.set = true;
  rec.current.origin = std::current_exception();
  rec.current.number = number;
  rec.current.source = std::move(source);
  rec.current.description = std::move(description);
  rec.current.helpFile = std::move(helpFile);
  rec.current.helpContext = std::move(helpContext);
}

std::string ComputerName() {
  char name[256] = {};
  if (gethostname(name, sizeof(name) - 1) != 0) return "?";
  return name;
}

std::string NowText() {
  std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[32];
  std::strftime(text, sizeof(text), "%m/%d/%y %H:%M:%S", &local);
  return text;
}

std::string SignedDistance(int64_t value) {
  return (value < 0 ? "- " : "+ ") + std::to_string(value < 0 ? -value : value);
}

std::string HexText(int32_t number) {
  char text[16];
  std::snprintf(text, sizeof(text), "%X", static_cast<uint32_t>(number));
  return text;
}

// The value as a frame prints it; nullopt-like empty forms never occur.
std::string ValueText(const Variant& value) {
  try {
    switch (value.Type()) {
      case VarType::Array:
        return "{Array}";
      case VarType::Empty:
        return "{Empty}";
      case VarType::Null:
        return "{Null}";
      case VarType::Object:
        return "{" + value.TypeName() + "}";
      case VarType::String:
      case VarType::Date:
        return "'" + value.ToString() + "'";
      case VarType::Integer:
      case VarType::Long:
      case VarType::Single:
      case VarType::Double:
      case VarType::Currency:
      case VarType::Decimal:
      case VarType::Byte:
      case VarType::Boolean:
        return value.ToString();
      default:
        return "{?}";
    }
  } catch (...) {
    return "{?}";
  }
}

// Lays out XML one element per line, two blanks per level of nesting.
std::string LayOutXml(std::string_view text) {
  std::string out;
  int level = 0;
  size_t pos = text.find('<');
  out.append(text.substr(0, pos));
  bool first = true;
  while (pos != std::string_view::npos) {
    size_t next = text.find('<', pos + 1);
    std::string_view piece = text.substr(pos, next == std::string_view::npos ? next : next - pos);
    bool closing = piece.size() > 1 && piece[1] == '/';
    bool selfContained = piece.find("/>") != std::string_view::npos ||
                         (piece.size() > 1 && (piece[1] == '?' || piece[1] == '!'));
    if (closing && level > 0) --level;
    if (!first) {
      out.append(kCrLf);
      out.append(static_cast<size_t>(level) * 2, ' ');
    }
    out.append(piece);
    if (!closing && !selfContained) ++level;
    first = false;
    pos = next;
  }
  return out;
}

void AppendIndented(std::string& out, std::string_view value) {
  size_t start = 0;
  while (start <= value.size()) {
    size_t end = value.find('\n', start);
    std::string_view line = value.substr(start, end == std::string_view::npos ? end : end - start);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    out.append(6, ' ');
    out.append(line);
    out.append(kCrLf);
    if (end == std::string_view::npos) break;
    start = end + 1;
  }
}

// "name=value" pairs of a frame or an Env line; long values go to `longValues`.
std::string PairsText(std::span<const std::string> names, std::span<const Variant> values,
                      std::string& longValues) {
  std::string out;
  size_t count = std::max(names.size(), values.size());
  for (size_t i = 0; i < count; ++i) {
    if (i >= values.size()) continue;  // a name without a value is left out
    std::string name = i < names.size() ? Trim(names[i]) : std::string();
    std::string value = ValueText(values[i]);
    if (value.size() > kLongValue || value.find_first_of("\r\n") != std::string::npos) {
      if (StartsWithNoCase(name, "xml") && value.rfind("'<", 0) == 0) value = LayOutXml(value);
      longValues.append("    Value Of ").append(name).append(":").append(kCrLf);
      AppendIndented(longValues, value);
      value = "{Text}";
    }
    if (!out.empty()) out.append(", ");
    if (!name.empty()) out.append(name).append("=");
    out.append(value);
  }
  return out;
}

std::vector<std::string> SplitParameters(std::string_view list) {
  std::vector<std::string> names;
  if (Trim(list).empty()) return names;
  size_t start = 0;
  while (true) {
    size_t comma = list.find(',', start);
    names.push_back(Trim(list.substr(start, comma == std::string_view::npos ? comma : comma - start)));
    if (comma == std::string_view::npos) break;
    start = comma + 1;
  }
  return names;
}

std::string ApiMessage(int32_t code) {
  std::string text = std::strerror(code);
  text.erase(std::remove_if(text.begin(), text.end(),
                            [](char c) { return c == '\r' || c == '\n' || c == '\0'; }),
             text.end());
  return text;
}

std::string StateText(int state) {
  if ((state & IErrorConnection::kStateOpen) == 0) return "adStateClosed";
  std::string text = "adStateOpen";
  if (state & IErrorConnection::kStateConnecting) text += " + adStateConnecting";
  if (state & IErrorConnection::kStateExecuting) text += " + adStateExecuting";
  if (state & IErrorConnection::kStateFetching) text += " + adStateFetching";
  return text;
}

// Every part of the connection is read with failures ignored: the trace must
// come out even when the connection is broken.
template <class F>
std::string Safely(F&& read) {
  try {
    return read();
  } catch (...) {
    return {};
  }
}

std::string ConnectionSection(ErrorRecord& rec, IErrorConnection* connection, bool preserved) {
  std::string out;
  out.append("  ADO Info: ").append(kCrLf);
  out.append("    ADO Version:   ").append(Safely([&] { return connection->Version(); })).append(kCrLf);
  out.append("    DbObject:      ").append(Safely([&] { return connection->TypeName(); }));
  if (preserved) out.append(" (Connection object was preserved internally)");
  out.append(kCrLf);
  out.append("    Conn. String: '")
      .append(Safely([&] { return connection->ConnectionString(); }))
      .append("'")
      .append(kCrLf);
  out.append("    Conn. State:   ")
      .append(Safely([&] { return StateText(connection->State()); }))
      .append(kCrLf);
  std::vector<std::string> errors;
  try {
    errors = connection->Errors();
  } catch (...) {
  }
  std::string joined;
  for (const std::string& e : errors) {
    out.append("    Error:         ").append(e).append(kCrLf);
    if (!joined.empty()) joined.append(kCrLf);
    joined.append(e);
  }
  if (!joined.empty()) rec.ErrDescription = joined;
  return out;
}

std::string FirstFrameHeader(const ErrorRecord& rec, std::string_view methodName,
                             IErrorConnection* connection) {
  std::string text(kHeaderTemplate);
  std::replace(text.begin(), text.end(), '%', kEscape);
  auto field = [&](std::string_view name, std::string_view value) {
    std::string key;
    key.push_back(kEscape);
    key.append(name);
    key.push_back(kEscape);
    ReplaceAll(text, key, value);
  };
  std::string adoVersion = "?";
  if (connection) {
    adoVersion = Safely([&] { return connection->Version(); });
    if (adoVersion.empty()) adoVersion = "?";
  }
  int64_t number = rec.ErrNumber;
  field("nl", kCrLf);
  field("Time", NowText());
  field("App", kProgramTitle);
  field("Ver", kProgramVersion);
  field("ADOVersion", adoVersion);
  field("Comp", ComputerName());
  field("MethodName", methodName);
  field("ErrNum", std::to_string(rec.ErrNumber));
  field("ErrHex", HexText(rec.ErrNumber));
  field("ErrNumRel1", SignedDistance(number - kObjectError));
  field("ErrNumRel2", SignedDistance(number - Error::kGeneral));
  field("ErrStd", rec.ErrNumber == Error::kGeneral ? "= ERR_GENERAL" : "");
  field("Source", rec.ErrSource);
  field("Descr", rec.ErrDescription);
  std::replace(text.begin(), text.end(), kEscape, '%');
  return text;
}

bool InBypassRange(int32_t number) {
  uint32_t n = static_cast<uint32_t>(number);
  return n >= static_cast<uint32_t>(kBypassFirst) && n < static_cast<uint32_t>(Error::kGeneral);
}

void TransactionSection(ErrorRecord& rec, int options, IErrorConnection* connection) {
  if (!connection) return;
  if (options & kErrRollback) {
    std::string line = "    Transaction: ";
    bool open = false;
    try {
      open = connection->IsOpen();
    } catch (...) {
    }
    if (open) {
      line += "Attempt to call RollbackTrans ";
      try {
        connection->RollbackTransaction();
        line += "succeeded";
      } catch (const std::exception& e) {
        line += "failed with error '" + std::string(e.what()) + "'";
      } catch (...) {
        line += "failed with error 'Unknown exception'";
      }
    } else {
      line += "Could not call RollbackTrans: Connection is closed ";
    }
    rec.traceText.append(line).append(kCrLf);
  }
  if (options & kErrCloseConnection) {
    bool open = false;
    try {
      open = connection->IsOpen();
    } catch (...) {
    }
    if (open) {
      std::string line = "    Connection: Attempt to call Close ";
      try {
        connection->Close();
        line += "succeeded";
      } catch (const std::exception& e) {
        line += "failed with error '" + std::string(e.what()) + "'";
      } catch (...) {
        line += "failed with error 'Unknown exception'";
      }
      rec.traceText.append(line).append(kCrLf);
    }
  }
}

// Appends the frame of `method` to the record's trace (steps 4 and 5).
void AddFrame(ErrorRecord& rec, std::string_view method, std::span<const Variant> args,
              IErrorConnection* connection, bool connectionPreserved,
              std::span<const std::string> envNames, std::span<const Variant> envValues) {
  size_t open = method.find('(');
  std::string name = Trim(method.substr(0, open));
  std::string_view parameters;
  if (open != std::string_view::npos) {
    parameters = method.substr(open + 1);
    size_t close = parameters.rfind(')');
    if (close != std::string_view::npos) parameters = parameters.substr(0, close);
  }

  if (rec.ErrSource == kErrorInSource) {
    rec.traceText = rec.ErrDescription;
  } else {
    rec.traceText = FirstFrameHeader(rec, name, connection);
    if (rec.ErrAPI != 0 && rec.ErrAPI != 203) {
      rec.traceText.append("  API Error: (")
          .append(std::to_string(rec.ErrAPI))
          .append(") ")
          .append(ApiMessage(rec.ErrAPI))
          .append(kCrLf);
    }
    if (connection) rec.traceText.append(ConnectionSection(rec, connection, connectionPreserved));
    // No request object is reachable from this engine, so the web section
    // that kErrWebInfo asks for stays empty.
  }

  rec.longValuesText.clear();
  std::vector<std::string> names = SplitParameters(parameters);
  std::string line = "  Call Stack: ";
  line.append(name).append("(").append(PairsText(names, args, rec.longValuesText)).append(")");
  if (rec.Errl != 0) line.append("  at Line ").append(std::to_string(rec.Errl));
  line.append(" ");
  if (line.size() < kFrameWidth) line.append(kFrameWidth - line.size(), '-');
  rec.traceText.append(line).append(kCrLf);
  rec.traceText.append(rec.longValuesText);
  rec.longValuesText.clear();
  if (!envNames.empty() || !envValues.empty()) {
    std::string env = PairsText(envNames, envValues, rec.longValuesText);
    rec.traceText.append("    Env: ").append(env).append(kCrLf);
    rec.traceText.append(rec.longValuesText);
    rec.longValuesText.clear();
  }
  if (!rec.insertedText.empty()) {
    rec.traceText.append(rec.insertedText);
    if (rec.insertedText.back() != '\n') rec.traceText.append(kCrLf);
    rec.insertedText.clear();
  }
  if (!rec.releasedObjectsText.empty()) {
    rec.traceText.append("    Released Objects: ").append(rec.releasedObjectsText).append(kCrLf);
    rec.releasedObjectsText.clear();
  }
}

}  // namespace

// --- Check -----------------------------------------------------------------------

std::string BuildCheckMessage(std::string_view messageTemplate, std::span<const Variant> args) {
  ErrorRecord& rec = ErrorRecord::Current();
  std::string message(messageTemplate);
  if (rec.messageProvider && !message.empty() && message[0] == '#') {
    try {
      message = rec.messageProvider(message);
    } catch (...) {
    }
  }
  ReplaceAll(message, "||", kCrLf);
  // A single array stands for its elements, as a script caller passes them.
  if (args.size() == 1 && args[0].IsArray()) args = args[0].ArrayValue().Elements();
  if (!args.empty()) {
    std::replace(message.begin(), message.end(), '%', kEscape);
    for (size_t i = 0; i < args.size(); ++i) {
      std::string text;
      try {
        text = args[i].ToString();
      } catch (...) {
        text.clear();
      }
      std::string key(1, kEscape);
      key.append(std::to_string(i + 1));
      ReplaceAll(message, key, text);
    }
    std::replace(message.begin(), message.end(), kEscape, '%');
  }
  return message;
}

void CheckFailed(int32_t number, std::string_view messageTemplate, std::span<const Variant> args,
                 std::string_view helpFile, int32_t helpContext) {
  std::string message = BuildCheckMessage(messageTemplate, args);
  if (number == 0) {
    ErrorRecord& rec = ErrorRecord::Current();
    if (!rec.collectedMessages.empty()) rec.collectedMessages.append(kCrLf);
    rec.collectedMessages.append(message);
    return;
  }
  throw Error(number, std::move(message), std::string(kCheckSource), std::string(helpFile),
              std::to_string(helpContext));
}

// --- The current error -------------------------------------------------------------

Error CurrentError() {
  ErrorRecord& rec = ErrorRecord::Current();
  std::exception_ptr ep = std::current_exception();
  if (rec.current.set && (!ep || ep == rec.current.origin)) return RestoredError(rec.current);
  if (ep) return FromException(ep, nullptr);
  return Error(0, {}, {}, {}, "0");
}

void ErrPreserve() {
  ErrorRecord& rec = ErrorRecord::Current();
  if (rec.ErrPreserved) return;
  int32_t api = rec.ErrAPI;
  Error current = [&] {
    ErrorRecord::Restored& r = rec.current;
    std::exception_ptr ep = std::current_exception();
    if (r.set && (!ep || ep == r.origin)) return RestoredError(r);
    if (ep) return FromException(ep, &api);
    return Error(0, {}, {}, {}, "0");
  }();
  rec.ErrNumber = current.number();
  rec.ErrSource = current.source();
  rec.ErrDescription = current.description();
  rec.ErrHelpFile = current.helpFile();
  rec.ErrHelpContext = current.helpContext();
  rec.ErrAPI = api;
  rec.ErrPreserved = true;
}

void ErrRestore() {
  ErrorRecord& rec = ErrorRecord::Current();
  if (!rec.ErrPreserved) return;
  SetRestored(rec, rec.ErrNumber, rec.ErrSource, rec.ErrDescription, rec.ErrHelpFile,
              rec.ErrHelpContext);
}

void ErrClear() {
  ErrorRecord& rec = ErrorRecord::Current();
  rec.ErrNumber = 0;
  rec.ErrDescription.clear();
  rec.ErrSource.clear();
  rec.ErrHelpFile.clear();
  rec.ErrHelpContext = "0";
  rec.ErrAPI = 0;
  rec.Errl = 0;
  rec.ErrPreserved = false;
  // A cleared error stays cleared while the same exception is in flight.
  SetRestored(rec, 0, {}, {}, {}, "0");
}

int32_t ErrNumber() { return CurrentError().number(); }
std::string ErrSource() { return CurrentError().source(); }
std::string ErrDescription() { return CurrentError().description(); }

std::string ErrShortDescription() {
  Error e = CurrentError();
  return ShortDescription(e.source(), e.description());
}

std::string ErrTraceFreeDescription() {
  Error e = CurrentError();
  return TraceFreeDescription(e.source(), e.description());
}

std::string ErrCollectedMessages() {
  return std::exchange(ErrorRecord::Current().collectedMessages, std::string());
}

void ErrInsertTrace(std::string_view lines) { ErrorRecord::Current().insertedText.append(lines); }

void ErrReleasedObjects(std::string_view text) {
  ErrorRecord::Current().releasedObjectsText.append(text);
}

void ErrPreserveConnection(IErrorConnection* connection) {
  ErrorRecord::Current().preservedConnection = connection;
}

void ErrSetAPI(int32_t code) { ErrorRecord::Current().ErrAPI = code; }

// --- ErrorIn -------------------------------------------------------------------------

std::string ErrorIn(std::string_view method, std::span<const Variant> args, int options,
                    IErrorConnection* connection, std::span<const std::string> envNames,
                    std::span<const Variant> envValues) {
  ErrorRecord& rec = ErrorRecord::Current();
  try {
    if (!rec.ErrPreserved && CurrentError().number() == 0) {
      SetRestored(rec, Error::kGeneral, std::string(kProgramTitle), std::string(kLostErrorMessage),
                  {}, "0");
    }
    ErrPreserve();
    bool connectionPreserved = false;
    if (!connection && rec.preservedConnection) {
      connection = rec.preservedConnection;
      connectionPreserved = true;
    }

    if (InBypassRange(rec.ErrNumber)) {
      rec.traceText.clear();
      TransactionSection(rec, options, connection);
    } else {
      if (options & kErrTrace) {
        AddFrame(rec, method, args, connection, connectionPreserved, envNames, envValues);
      }
      TransactionSection(rec, options, connection);
      if (options & kErrTrace) {
        rec.ErrSource = std::string(kErrorInSource);
        rec.ErrDescription = rec.traceText;
      }
    }
  } catch (...) {
    // Building the trace must never replace the error being reported; what
    // was built so far stands.
  }

  rec.preservedConnection = nullptr;
  rec.insertedText.clear();
  rec.ErrAPI = 0;  // reported with this error only
  Error result(rec.ErrNumber, rec.ErrDescription, rec.ErrSource, rec.ErrHelpFile,
               rec.ErrHelpContext);
  std::string trace = rec.traceText;
  rec.ErrPreserved = false;
  if (options & kErrRaise) {
    // The error travels as the exception from here; nothing stays restored.
    rec.current = ErrorRecord::Restored();
    throw result;
  }
  SetRestored(rec, result.number(), result.source(), result.description(), result.helpFile(),
              result.helpContext());
  return trace;
}

void ErrorInRethrow(std::string_view method, std::span<const Variant> args, int options,
                    IErrorConnection* connection) {
  ErrorIn(method, args, options | kErrRaise, connection);
  throw CurrentError();  // not reached: kErrRaise always throws
}

// --- Reading descriptions ----------------------------------------------------------------

std::string ShortDescription(std::string_view source, std::string_view description) {
  auto cut = [](std::string_view text) {
    size_t lineBreak = text.find_first_of("\r\n");
    size_t marker = text.find("Time='");
    size_t end;
    if (lineBreak == std::string_view::npos) {
      end = marker;
    } else if (marker == std::string_view::npos) {
      end = lineBreak;
    } else {
      end = std::max(lineBreak, marker);
    }
    return Trim(text.substr(0, end));
  };
  // Once a trace exists it is the description itself, so both readings of
  // the rule look at the same text.
  (void)source;
  return cut(description);
}

std::string ShortDescriptionBeforeTrace(std::string_view description) {
  size_t time = description.find("Time");
  size_t stack = description.find("Call Stack:");
  return Trim(description.substr(0, std::min(time, stack)));
}

std::string TraceFreeDescription(std::string_view source, std::string_view description) {
  if (source != kErrorInSource) return std::string(description);
  size_t marker = description.find(" \r\n  Time='");
  if (marker == std::string_view::npos) return std::string(description);
  return std::string(description.substr(0, marker));
}

}  // namespace tessel
