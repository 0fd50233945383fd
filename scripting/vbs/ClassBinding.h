// ClassBinding<T>: declares how a C++ class appears to scripts, and
// BoundObject<T>: the Object base that answers GetMemberId/Invoke from it.
//
//   class Counter : public BoundObject<Counter> {
//    public:
//     static void Bind(ClassBinding<Counter>& b) {
//       b.TypeName("Counter")
//        .Method("Add", &Counter::Add)
//        .Property("Value", &Counter::Value, &Counter::SetValue)
//        .Default("Value");
//     }
//     ...
//   };
//
// Methods and property accessors are ordinary member functions. Parameters
// may be Variant (by value), Variant& (by reference: assignments reach the
// caller's variable), const Variant&, bool, int16_t, int32_t, int64_t, float,
// double, std::string or Ref<Object>; a single std::span<Variant> parameter
// takes any number of arguments. Trailing arguments may be omitted for Variant
// parameters (they arrive as Variant::Missing()); for other types an omitted
// argument raises 450. Return types: void, Variant, bool, the integer and
// floating types, std::string, Ref<U>.
//
// The binding of a class is built once, on first use, and is immutable after
// that; it holds no per-object state, so bound objects of any engine or
// thread share it safely. Names compare case-insensitively.
#pragma once

#include <array>
#include <cctype>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core/Object.h"
#include "core/RuntimeError.h"
#include "core/SafeArray.h"
#include "core/Variant.h"

namespace tessel::vbs {

namespace binding {

inline std::string Lower(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

template <class A>
struct Arg {
  using Plain = std::remove_cvref_t<A>;
  static decltype(auto) From(Variant& v) {
    if constexpr (std::is_same_v<A, Variant&>) {
      return static_cast<Variant&>(v);
    } else if constexpr (std::is_same_v<Plain, Variant>) {
      return static_cast<const Variant&>(v);
    } else {
      if (v.IsMissing()) ThrowRuntimeError(450);
      if constexpr (std::is_same_v<Plain, bool>) return v.ToBool();
      else if constexpr (std::is_same_v<Plain, int16_t>) return v.ToInteger();
      else if constexpr (std::is_same_v<Plain, int32_t>) return v.ToLong();
      else if constexpr (std::is_same_v<Plain, int64_t>) return static_cast<int64_t>(v.ToDouble());
      else if constexpr (std::is_same_v<Plain, float>) return v.ToSingle();
      else if constexpr (std::is_same_v<Plain, double>) return v.ToDouble();
      else if constexpr (std::is_same_v<Plain, std::string>) return v.ToString();
      else if constexpr (std::is_same_v<Plain, Ref<Object>>) {
        if (!v.IsObject()) ThrowRuntimeError(424);
        return v.ObjectRef();
      } else {
        static_assert(sizeof(A) == 0, "unsupported parameter type for a bound member");
      }
    }
  }
};

template <class R>
Variant ToVariant(R&& value) {
  using Plain = std::remove_cvref_t<R>;
  if constexpr (std::is_same_v<Plain, Variant>) return std::forward<R>(value);
  else if constexpr (std::is_same_v<Plain, bool>) return Variant(value);
  else if constexpr (std::is_same_v<Plain, int16_t>) return Variant::FromInteger(value);
  else if constexpr (std::is_same_v<Plain, int32_t>) return Variant::FromLong(value);
  else if constexpr (std::is_same_v<Plain, int64_t>) return Variant::FromDouble(static_cast<double>(value));
  else if constexpr (std::is_same_v<Plain, float>) return Variant::FromSingle(value);
  else if constexpr (std::is_same_v<Plain, double>) return Variant::FromDouble(value);
  else if constexpr (std::is_same_v<Plain, std::string>) return Variant(std::string(value));
  else return Variant(Ref<Object>(value));
}

template <class Self, class Fn, class R, class... A, size_t... I>
Variant CallWith(Self& self, Fn fn, std::span<Variant> args, std::index_sequence<I...>) {
  constexpr size_t kCount = sizeof...(A);
  if constexpr (kCount == 1 && (std::is_same_v<std::remove_cvref_t<A>, std::span<Variant>> && ...)) {
    if constexpr (std::is_void_v<R>) {
      (self.*fn)(args);
      return Variant();
    } else {
      return ToVariant((self.*fn)(args));
    }
  } else {
    if (args.size() > kCount) ThrowRuntimeError(450);
    std::array<Variant, kCount + 1> pad;
    auto at = [&](size_t i) -> Variant& {
      if (i < args.size()) return args[i];
      pad[i] = Variant::Missing();
      return pad[i];
    };
    if constexpr (std::is_void_v<R>) {
      (self.*fn)(Arg<A>::From(at(I))...);
      return Variant();
    } else {
      return ToVariant((self.*fn)(Arg<A>::From(at(I))...));
    }
  }
}

template <class T, class R, class... A>
constexpr int ArityOf(R (T::*)(A...)) {
  return sizeof...(A);
}
template <class T, class R, class... A>
constexpr int ArityOf(R (T::*)(A...) const) {
  return sizeof...(A);
}

template <class T, class R, class... A>
std::function<Variant(T&, std::span<Variant>)> Wrap(R (T::*fn)(A...)) {
  return [fn](T& self, std::span<Variant> args) {
    return CallWith<T, R (T::*)(A...), R, A...>(self, fn, args, std::index_sequence_for<A...>{});
  };
}

template <class T, class R, class... A>
std::function<Variant(T&, std::span<Variant>)> Wrap(R (T::*fn)(A...) const) {
  return [fn](T& self, std::span<Variant> args) {
    return CallWith<const T, R (T::*)(A...) const, R, A...>(self, fn, args, std::index_sequence_for<A...>{});
  };
}

}  // namespace binding

template <class T>
class ClassBinding {
 public:
  using Call = std::function<Variant(T&, std::span<Variant>)>;

  ClassBinding& TypeName(std::string name) {
    typeName_ = std::move(name);
    return *this;
  }

  template <class Fn>
  ClassBinding& Method(std::string_view name, Fn fn) {
    Entry(name).method = binding::Wrap(fn);
    return *this;
  }

  template <class Get>
  ClassBinding& Property(std::string_view name, Get get) {
    auto& e = Entry(name);
    e.get = binding::Wrap(get);
    e.getArity = binding::ArityOf(get);
    return *this;
  }

  template <class Get, class Set>
  ClassBinding& Property(std::string_view name, Get get, Set set) {
    auto& e = Entry(name);
    e.get = binding::Wrap(get);
    e.getArity = binding::ArityOf(get);
    e.set = binding::Wrap(set);
    return *this;
  }

  // A property that can only be assigned.
  template <class Set>
  ClassBinding& WriteOnly(std::string_view name, Set set) {
    Entry(name).set = binding::Wrap(set);
    return *this;
  }

  // The member `obj` and `obj(args)` stand for.
  ClassBinding& Default(std::string_view name) {
    defaultIndex_ = IndexOf(name);
    return *this;
  }

  const std::string& GetTypeName() const { return typeName_; }

  DispId GetMemberId(std::string_view name) const {
    auto it = index_.find(binding::Lower(name));
    return it == index_.end() ? kDispIdUnknown : static_cast<DispId>(it->second + 1);
  }

  Variant Invoke(T& self, DispId id, InvokeKind kind, std::span<Variant> args) const {
    int index = id == kDispIdDefault ? defaultIndex_ : id - 1;
    if (index < 0 || index >= static_cast<int>(members_.size())) ThrowMemberNotFound();
    const Member& m = members_[index];
    if (kind == InvokeKind::PropertyLet || kind == InvokeKind::PropertySet) {
      if (!m.set) ThrowMemberNotFound();
      return m.set(self, args);
    }
    if (m.method) return m.method(self, args);
    if (!m.get) ThrowMemberNotFound();
    if (m.getArity == 0 && !args.empty()) {
      // `obj.Items(1)` on a property without parameters indexes what the
      // property returns.
      Variant value = m.get(self, {});
      if (value.IsObject() && value.ObjectPtr()) return value.ObjectPtr()->Invoke(kDispIdDefault, kind, args);
      if (value.IsArray()) {
        std::vector<int32_t> idx;
        for (const auto& a : args) idx.push_back(a.ToLong());
        return value.ArrayValue().At(idx);
      }
      ThrowRuntimeError(450);
    }
    return m.get(self, args);
  }

 private:
  struct Member {
    std::string name;
    Call method, get, set;
    int getArity = -1;
  };

  Member& Entry(std::string_view name) {
    return members_[IndexOf(name)];
  }

  int IndexOf(std::string_view name) {
    std::string lower = binding::Lower(name);
    auto it = index_.find(lower);
    if (it != index_.end()) return it->second;
    int index = static_cast<int>(members_.size());
    members_.push_back(Member{std::string(name), {}, {}, {}});
    index_.emplace(std::move(lower), index);
    return index;
  }

  std::string typeName_ = "Object";
  std::vector<Member> members_;
  std::unordered_map<std::string, int> index_;
  int defaultIndex_ = -1;
};

// Base of a bound class: T derives from BoundObject<T> and provides
// `static void Bind(ClassBinding<T>&)`.
template <class T>
class BoundObject : public Object {
 public:
  static const ClassBinding<T>& Binding() {
    static const ClassBinding<T> binding = [] {
      ClassBinding<T> b;
      T::Bind(b);
      return b;
    }();
    return binding;
  }

  std::string TypeName() const override { return Binding().GetTypeName(); }
  DispId GetMemberId(std::string_view name) override { return Binding().GetMemberId(name); }
  Variant Invoke(DispId id, InvokeKind kind, std::span<Variant> args) override {
    return Binding().Invoke(static_cast<T&>(*this), id, kind, args);
  }
};

}  // namespace tessel::vbs
