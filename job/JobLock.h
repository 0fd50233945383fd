// JobLock: the per-job limit on runs at once (MAXINSTANCE).
//
// A run takes one of `limit` slots of its job and holds it until Release or
// until the JobLock goes. A slot is held by something the operating system or
// the database frees when the holding process dies, even by kill -9, so a
// crashed run never blocks its job:
//  - on one machine, an exclusive flock() on the file
//    "<lockFolder>/<job>.<slot>.lock";
//  - with a PostgreSQL job database, a session advisory lock on the pair
//    (hash of the job id, slot) held on a connection of its own, so that
//    engines on several machines share the limit.
#pragma once

#include <memory>
#include <string>

namespace tessel {
namespace db {
class Connection;
}

class JobLock {
 public:
  // A lock held in files under lockFolder (created when missing).
  static std::unique_ptr<JobLock> InFolder(std::string lockFolder);
  // A lock held as advisory locks on a PostgreSQL server.
  static std::unique_ptr<JobLock> OnDatabase(std::string connectionText);

  virtual ~JobLock() = default;

  // Takes a free slot among `limit`; false when all are taken.
  virtual bool Acquire(const std::string& jobId, int limit) = 0;
  // Frees the slot; false when it could not be freed. Releasing twice is harmless.
  virtual bool Release() = 0;
  virtual bool Held() const = 0;
};

}  // namespace tessel
