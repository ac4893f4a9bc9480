// What the program's exit status tells the one who started it.
#pragma once

#include <exception>
#include <stdexcept>
#include <string>

namespace nox::agent {

/// Where sysexits.h has a number for the matter, it is that one.
enum class ExitStatus {
  Ok = 0,
  Failed = 1,          // nothing of what follows
  Usage = 2,           // the command line cannot be understood
  Damaged = 65,        // the data are not what they should be
  NoAddress = 69,      // a port is taken, or an address is none of this machine's
  CannotWrite = 73,    // the data directory is read-only, or somebody else's
  DiskFull = 74,       // no room on the disk
  InUse = 75,          // another agent serves the data directory
  Configuration = 78,  // a mistake in the configuration, or in a file that it names
};

/// Ends the program with a message. Thrown by value.
class AdminError : public std::runtime_error {
public:
  AdminError(ExitStatus status, const std::string& message)
      : std::runtime_error(message), status_(status) {}
  ExitStatus status() const { return status_; }

private:
  ExitStatus status_;
};

/// The status for what the system answered with `errno`.
ExitStatus statusOfErrno(int error);

/// The status for whatever ended the program.
ExitStatus statusOf(const std::exception& error);

}  // namespace nox::agent
