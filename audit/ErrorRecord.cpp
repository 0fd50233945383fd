#include "audit/ErrorRecord.h"

namespace tessel {

ErrorRecord& ErrorRecord::Current() {
  thread_local ErrorRecord record;
  return record;
}

}  // namespace tessel
