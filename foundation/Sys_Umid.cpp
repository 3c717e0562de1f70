#include "Sys_Umid.h"

#include <algorithm>

#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_generators.hpp>

Sys_Umid Sys_Umid::Create() {
    // One generator per thread: the generator is not thread-safe and is costly to seed.
    thread_local boost::uuids::random_generator sGenerator;
    boost::uuids::uuid uuid = sGenerator();
    Bytes bytes;
    std::copy(uuid.begin(), uuid.end(), bytes.begin());
    return Sys_Umid(bytes);
}

std::string Sys_Umid::AsHexString() const {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * kSize);
    for (uint8_t byte : mBytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}
