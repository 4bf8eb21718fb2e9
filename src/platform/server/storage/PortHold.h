#pragma once
// Keeps a TCP port of this machine taken while its object store is stopped: a socket bound to the address
// and port, never listening, so that connections are refused and no other program is given the port.

#include <string>

#include "framework/base/UniqueFd.h"

namespace Platform {

class CPortHold {
public:
    /// Binds `address`:`port`; false with a reason when the port is taken.
    bool Take(const std::string& address, int port, std::string& error);
    void Release() { socket_.Reset(); }
    bool Held() const { return socket_.Valid(); }

private:
    Tal::Base::CUniqueFd socket_;
};

/// True when `address` is an address of this machine (a socket can be bound to it).
bool IsLocalAddress(const std::string& address);

}  // namespace Platform
