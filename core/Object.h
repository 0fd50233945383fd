// Object: the intrusively reference-counted base of everything a script can
// hold in a variable (script class instances, Dictionary, RegExp, the store's
// Transaction, ...), and Ref<T>, the smart pointer that owns one reference.
//
// Ownership: an Object lives as long as some Ref (or Variant) holds it. The
// count starts at zero; the first Ref takes the first reference. When the last
// reference goes, Terminate() runs while the object is still whole (this is
// where a script class runs Class_Terminate); if Terminate() took a new
// reference (the script stored Me somewhere) the object survives, otherwise it
// is destroyed. A release that happens while the object is being destroyed is
// ignored, so destructors may freely drop Refs that lead back to the object.
//
// Dispatch: the script engine reaches every member by name through
// GetMemberId and calls it through Invoke. Names compare case-insensitively.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace tessel {

class Variant;

using DispId = int32_t;
constexpr DispId kDispIdDefault = 0;   // the default property / value
constexpr DispId kDispIdUnknown = -1;  // no member of that name

enum class InvokeKind : uint8_t { Method, PropertyGet, PropertyLet, PropertySet };

template <class T>
class Ref;

class Object {
 public:
  Object() noexcept = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object();

  void AddRef() const noexcept { refs_.fetch_add(1, std::memory_order_relaxed); }
  // Drops one reference; at zero runs Terminate() and then destroys the object
  // unless Terminate() took a reference of its own.
  void Release() const noexcept;
  uint32_t RefCount() const noexcept { return refs_.load(std::memory_order_relaxed); }

  // What the script function TypeName() returns for this object.
  virtual std::string TypeName() const = 0;

  // Case-insensitive member lookup; kDispIdUnknown when there is none.
  // The default answers kDispIdUnknown for every name.
  virtual DispId GetMemberId(std::string_view name);

  // Calls member `id`. `args` are in source order; the callee may assign to
  // args[i] to hand back ByRef results. For PropertyLet/PropertySet the value
  // being assigned is the last argument. An unknown member raises 438
  // "Object doesn't support this property or method" (the default does so for
  // every id).
  virtual Variant Invoke(DispId id, InvokeKind kind, std::span<Variant> args);

  // For Each support: an Enumerator over the collection. The default raises
  // 451 "Object not a collection".
  virtual Ref<Object> NewEnum();

 protected:
  // Runs once when the count reaches zero, before destruction. Must not throw.
  virtual void Terminate() noexcept {}

 private:
  // Marks an object whose destruction has begun.
  static constexpr uint32_t kDying = 0x40000000u;
  mutable std::atomic<uint32_t> refs_{0};
};

// Raises 438 "Object doesn't support this property or method".
[[noreturn]] void ThrowMemberNotFound();

// Owns one reference to a T (T derives from Object). Copy = AddRef, destruction
// = Release. A Ref may be null (the script's Nothing).
template <class T>
class Ref {
 public:
  Ref() noexcept = default;
  Ref(std::nullptr_t) noexcept {}
  // Takes a new reference to `p` (like intrusive_ptr); `p` may be null.
  explicit Ref(T* p) noexcept : p_(p) {
    if (p_) p_->AddRef();
  }
  Ref(const Ref& other) noexcept : Ref(other.p_) {}
  Ref(Ref&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
  // Upcasts only; use RefCast for the other direction.
  template <class U>
    requires std::is_convertible_v<U*, T*>
  Ref(const Ref<U>& other) noexcept : Ref(static_cast<T*>(other.get())) {}
  template <class U>
    requires std::is_convertible_v<U*, T*>
  Ref(Ref<U>&& other) noexcept : p_(other.detach()) {}
  ~Ref() { reset(); }

  Ref& operator=(const Ref& other) noexcept {
    Ref(other).swap(*this);
    return *this;
  }
  Ref& operator=(Ref&& other) noexcept {
    Ref(std::move(other)).swap(*this);
    return *this;
  }
  Ref& operator=(std::nullptr_t) noexcept {
    reset();
    return *this;
  }

  // Releases after clearing, so a destructor that reaches back here sees null.
  void reset() noexcept {
    if (T* old = std::exchange(p_, nullptr)) old->Release();
  }
  // Gives up ownership without releasing; the caller owns one reference.
  T* detach() noexcept { return std::exchange(p_, nullptr); }
  // Takes over a reference the caller already owns.
  static Ref Adopt(T* p) noexcept {
    Ref r;
    r.p_ = p;
    return r;
  }
  void swap(Ref& other) noexcept { std::swap(p_, other.p_); }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }

  friend bool operator==(const Ref& a, const Ref& b) noexcept { return a.p_ == b.p_; }
  friend bool operator==(const Ref& a, std::nullptr_t) noexcept { return a.p_ == nullptr; }

 private:
  T* p_ = nullptr;
};

// The one place objects are allocated: the new object is owned by the Ref.
template <class T, class... Args>
Ref<T> MakeRef(Args&&... args) {
  return Ref<T>(new T(std::forward<Args>(args)...));
}

// The object as a T, or null when it is not one (dynamic_cast).
template <class T, class U>
Ref<T> RefCast(const Ref<U>& from) noexcept {
  return Ref<T>(dynamic_cast<T*>(from.get()));
}

// What For Each walks. Next() stores the next element and returns true, or
// returns false at the end.
class Enumerator : public Object {
 public:
  virtual bool Next(Variant& out) = 0;
  std::string TypeName() const override { return "Object"; }
};

}  // namespace tessel
