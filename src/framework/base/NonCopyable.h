#pragma once
// Private base for classes that own a resource and must not be copied or assigned
// (sessions, recorders, servers): the copy operations are deleted once, here.

namespace Tal {
namespace Base {

class CNonCopyable {
protected:
    CNonCopyable() = default;
    ~CNonCopyable() = default;

public:
    CNonCopyable(const CNonCopyable&) = delete;
    CNonCopyable& operator=(const CNonCopyable&) = delete;
};

}  // namespace Base
}  // namespace Tal
