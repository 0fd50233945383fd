#include "job/JobLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cctype>
#include <filesystem>

#include "db/Connection.h"

namespace tessel {

namespace {

// Job ids may hold any character; file names get a safe spelling of them.
std::string SafeFileName(const std::string& jobId) {
  std::string name;
  for (unsigned char c : jobId) {
    if (std::isalnum(c) || c == '-' || c == '_') {
      name.push_back(static_cast<char>(c));
    } else {
      static const char kHex[] = "0123456789ABCDEF";
      name.push_back('%');
      name.push_back(kHex[c >> 4]);
      name.push_back(kHex[c & 15]);
    }
  }
  return name;
}

class FolderJobLock : public JobLock {
 public:
  explicit FolderJobLock(std::string folder) : folder_(std::move(folder)) {}
  ~FolderJobLock() override { Release(); }

  bool Acquire(const std::string& jobId, int limit) override {
    Release();
    std::error_code ec;
    std::filesystem::create_directories(folder_, ec);
    for (int slot = 1; slot <= limit; ++slot) {
      std::string file = folder_ + "/" + SafeFileName(jobId) + "." + std::to_string(slot) + ".lock";
      int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
      if (fd < 0) continue;
      if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
        fd_ = fd;
        return true;
      }
      ::close(fd);
    }
    return false;
  }

  bool Release() override {
    if (fd_ < 0) return true;
    bool freed = ::flock(fd_, LOCK_UN) == 0;
    ::close(fd_);
    fd_ = -1;
    return freed;
  }

  bool Held() const override { return fd_ >= 0; }

 private:
  std::string folder_;
  int fd_ = -1;
};

class DatabaseJobLock : public JobLock {
 public:
  explicit DatabaseJobLock(std::string connectionText) : connectionText_(std::move(connectionText)) {}
  ~DatabaseJobLock() override {
    try {
      Release();
    } catch (...) {
    }
  }

  bool Acquire(const std::string& jobId, int limit) override {
    Release();
    connection_ = db::OpenConnection(connectionText_);
    for (int slot = 1; slot <= limit; ++slot) {
      auto result = connection_->OpenRecordset("SELECT pg_try_advisory_lock(hashtext(?), ?)",
                                               {jobId, int64_t{slot}});
      auto taken = result->Int64(0);
      if (taken && *taken != 0) {
        jobId_ = jobId;
        slot_ = slot;
        return true;
      }
    }
    connection_.reset();
    return false;
  }

  bool Release() override {
    if (!connection_) return true;
    bool freed = false;
    try {
      auto result =
          connection_->OpenRecordset("SELECT pg_advisory_unlock(hashtext(?), ?)", {jobId_, int64_t{slot_}});
      auto released = result->Int64(0);
      freed = released && *released != 0;
    } catch (...) {
      freed = false;
    }
    // Closing the connection frees the lock in any case.
    connection_.reset();
    return freed;
  }

  bool Held() const override { return connection_ != nullptr; }

 private:
  std::string connectionText_;
  std::unique_ptr<db::Connection> connection_;
  std::string jobId_;
  int slot_ = 0;
};

}  // namespace

std::unique_ptr<JobLock> JobLock::InFolder(std::string lockFolder) {
  return std::make_unique<FolderJobLock>(std::move(lockFolder));
}

std::unique_ptr<JobLock> JobLock::OnDatabase(std::string connectionText) {
  return std::make_unique<DatabaseJobLock>(std::move(connectionText));
}

}  // namespace tessel
