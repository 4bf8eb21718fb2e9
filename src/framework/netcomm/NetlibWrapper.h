#pragma once
// Network library settings shared by every request: the time-out factor.

namespace NetworkCommunication {
namespace NetlibWrapper {

/// Time-out level of requests; kDefault when the configuration does not say.
enum TimeoutFactor { kTimeoutDefault = -1, kTimeoutShort = 0, kTimeoutMedium = 1, kTimeoutLong = 2 };

/// Sets the factor; any value is stored, unknown ones behave as the default.
void SetTimeoutFacotor(TimeoutFactor factor);
TimeoutFactor GetTimeoutFacotor();
/// Request time-out in milliseconds: the explicit time-out when one is set, else by the factor: 10 s short
/// (and default), 20 s medium, 40 s long.
int GetRequestTimeoutMs();
/// An explicit time-out for every request (for sites with unusual links); 0 goes back to the factor.
void SetRequestTimeoutMs(int milliseconds);

}  // namespace NetlibWrapper
}  // namespace NetworkCommunication
