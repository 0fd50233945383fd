// ManagedDBConnection: resolves a connection text that may name a managed
// connection ("ManagedId=NAME") through the DBCONNECT table of the job database.
#pragma once

#include <string>

namespace tessel {

class ManagedDBConnection {
 public:
  void Initialise(std::string connectionString) { connectionString_ = std::move(connectionString); }
  const std::string& ConnectionString() const { return connectionString_; }
  bool IsManaged() const;
  std::string ManagedConnectionId() const;
  // CONNECTSTR of the DBCONNECT row; 7006 when there is none.
  std::string ManagedConnectionString() const;
  // The text to open: the managed one, or the text itself.
  std::string ResolvedConnectionString() const;

 private:
  std::string connectionString_;
};

}  // namespace tessel
