#include "app/ScriptRunner.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/Error.h"
#include "core/Variant.h"
#include "scripting/vbs/ClassBinding.h"
#include "scripting/vbs/Engine.h"

namespace tessel {

namespace {

using vbs::BoundObject;
using vbs::ClassBinding;

// Thrown by WScript.Quit; not a script error, so On Error cannot stop it.
struct QuitRequest {
  int code;
};

class ArgumentEnumerator : public Enumerator {
 public:
  explicit ArgumentEnumerator(std::vector<std::string> items) : items_(std::move(items)) {}
  bool Next(Variant& out) override {
    if (next_ >= items_.size()) return false;
    out = Variant(items_[next_++]);
    return true;
  }

 private:
  std::vector<std::string> items_;
  size_t next_ = 0;
};

class ScriptArguments : public BoundObject<ScriptArguments> {
 public:
  explicit ScriptArguments(std::vector<std::string> items) : items_(std::move(items)) {}

  static void Bind(ClassBinding<ScriptArguments>& b) {
    b.TypeName("IArguments2")
        .Property("Item", &ScriptArguments::Item)
        .Property("Count", &ScriptArguments::Count)
        .Property("Length", &ScriptArguments::Count)
        .Default("Item");
  }

  Variant Item(int32_t index) const {
    if (index < 0 || index >= static_cast<int32_t>(items_.size())) ThrowRuntimeError(9);
    return Variant(items_[index]);
  }
  int32_t Count() const { return static_cast<int32_t>(items_.size()); }
  Ref<Object> NewEnum() override { return MakeRef<ArgumentEnumerator>(items_); }

 private:
  std::vector<std::string> items_;
};

class ScriptHost : public BoundObject<ScriptHost> {
 public:
  ScriptHost(std::ostream& out, std::string path, std::vector<std::string> args)
      : out_(out), path_(std::move(path)), arguments_(MakeRef<ScriptArguments>(std::move(args))) {}

  static void Bind(ClassBinding<ScriptHost>& b) {
    b.TypeName("IHost")
        .Method("Echo", &ScriptHost::Echo)
        .Method("Quit", &ScriptHost::Quit)
        .Property("Arguments", &ScriptHost::Arguments)
        .Property("ScriptName", &ScriptHost::ScriptName)
        .Property("ScriptFullName", &ScriptHost::ScriptFullName)
        .Property("Name", &ScriptHost::Name)
        .Default("Name");
  }

  void Echo(std::span<Variant> args) {
    for (size_t i = 0; i < args.size(); ++i) {
      if (i) out_ << ' ';
      out_ << Text(args[i]);
    }
    out_ << '\n';
    out_.flush();
  }
  void Quit(Variant code) { throw QuitRequest{code.IsMissing() || code.IsEmpty() ? 0 : code.ToLong()}; }
  Ref<Object> Arguments() const { return arguments_; }
  std::string ScriptName() const { return std::filesystem::path(path_).filename().string(); }
  std::string ScriptFullName() const { return std::filesystem::absolute(path_).string(); }
  std::string Name() const { return "Windows Script Host"; }

  static std::string Text(const Variant& v) {
    if (v.IsNull()) return "Null";
    if (v.IsMissing()) return "";
    return v.ToString();
  }

 private:
  std::ostream& out_;
  std::string path_;
  Ref<ScriptArguments> arguments_;
};

}  // namespace

int RunScriptFile(const std::string& path, const std::vector<std::string>& args, std::ostream& out,
                  std::ostream& err) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    err << path << ": cannot open the script file\n";
    return 1;
  }
  std::stringstream buffer;
  buffer << file.rdbuf();
  std::string text = buffer.str();
  if (text.size() >= 3 && static_cast<unsigned char>(text[0]) == 0xEF &&
      static_cast<unsigned char>(text[1]) == 0xBB && static_cast<unsigned char>(text[2]) == 0xBF)
    text.erase(0, 3);

  vbs::Engine engine;
  engine.SetAllowUI(true);
  engine.SetUISink([&out](const std::string& prompt) { out << prompt << '\n'; });
  engine.AddObject("WScript", MakeRef<ScriptHost>(out, path, args));
  try {
    engine.AddCode(text);
  } catch (const QuitRequest& quit) {
    return quit.code;
  } catch (const Error& e) {
    const auto& info = engine.Error();
    err << path << '(' << info.Line() << ", " << info.Column() << ") " << e.source() << ": " << e.description()
        << " (" << e.number() << ")\n";
    return 1;
  }
  return 0;
}

}  // namespace tessel
