#include "core/Object.h"

#include "core/RuntimeError.h"
#include "core/Variant.h"

namespace tessel {

Object::~Object() = default;

void Object::Release() const noexcept {
  if (refs_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  // Last reference gone. Hold a temporary one while Terminate runs so that
  // references taken and dropped inside it cannot bring the count to zero again.
  refs_.store(1, std::memory_order_relaxed);
  const_cast<Object*>(this)->Terminate();
  if (refs_.fetch_sub(1, std::memory_order_acq_rel) != 1) return;  // kept alive
  // From here on releases reaching this object from its own members are
  // ignored: the count never comes back down to one.
  refs_.store(kDying, std::memory_order_relaxed);
  delete this;
}

DispId Object::GetMemberId(std::string_view) { return kDispIdUnknown; }

Variant Object::Invoke(DispId, InvokeKind, std::span<Variant>) { ThrowMemberNotFound(); }

Ref<Object> Object::NewEnum() { ThrowRuntimeError(451); }

void ThrowMemberNotFound() { ThrowRuntimeError(438); }

}  // namespace tessel
