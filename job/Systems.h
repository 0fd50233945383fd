// Systems: one connector definition, a row of the SYSTEMS table.
#pragma once

#include <cstdint>
#include <string>

namespace tessel {

class Systems {
 public:
  // Reads the row of systemId; 10995 unless exactly one row has it.
  void Initialise(const std::string& systemId);

  const std::string& ConnectionString() const { return connectionString_; }
  const std::string& UserId() const { return userId_; }
  // As stored: cipher text where the password was encrypted.
  const std::string& Password() const { return password_; }
  const std::string& OrganisationId() const { return organisationId_; }
  int32_t SystemType() const { return systemType_; }

 private:
  std::string connectionString_;
  std::string userId_;
  std::string password_;
  std::string organisationId_;
  int32_t systemType_ = 0;
};

}  // namespace tessel
