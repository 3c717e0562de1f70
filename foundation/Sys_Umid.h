// Sys_Umid: a 16-byte unique id. Create() draws a fresh random (version 4) id from the
// operating system's entropy; NoID() is all zero bytes and never produced by Create().
// Plain value: copyable, comparable, raw bytes. Create() may be called from any thread; it is
// not for real-time use (it may block on the entropy source).
#pragma once

#include <array>
#include <cstdint>
#include <string>

class Sys_Umid {
public:
    static constexpr size_t kSize = 16;
    using Bytes = std::array<uint8_t, kSize>;

    constexpr Sys_Umid() = default;  // NoID
    explicit constexpr Sys_Umid(const Bytes& iBytes) : mBytes(iBytes) {}

    static Sys_Umid Create();
    static constexpr Sys_Umid NoID() { return Sys_Umid(); }

    bool IsNoID() const { return *this == NoID(); }
    const Bytes& GetBytes() const { return mBytes; }
    // 32 lowercase hexadecimal digits, byte 0 first.
    std::string AsHexString() const;

    bool operator==(const Sys_Umid& iOther) const = default;
    auto operator<=>(const Sys_Umid& iOther) const = default;

private:
    Bytes mBytes{};
};
