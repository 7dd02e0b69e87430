#pragma once

#include "contract/ApiTest.h"

#include <ostream>

namespace kiv::test {

// The result and the last lines of a function in one case.
struct Outcome {
    int result;
    Lines lines;
};

inline std::string NoBytesLine(const std::string& function)
{
    return "E " + function + ": [NAM_API] pByteArray is NULL";
}

// A function of the library that asks the server for a byte array, and its expected behaviour without one.
struct BytesQuery {
    std::string name;
    std::string method; // the server's method, and the function that logs
    std::function<int()> call;
    std::string sent = "0"; // its argument
    std::string signature = "i";
    Lines first = {};                          // lines before all others
    Lines refused = {MethodErrorLine(method)}; // after the line about the refusal; the result is -1
    Outcome noTuple = {0, {}};                 // after the lines about the missing tuple
    Outcome noBytes = {0, {NoBytesLine(method)}};

    friend void PrintTo(const BytesQuery& query, std::ostream* out) { *out << query.name; }
};

// Its tests are the same for all these functions. Each part of the library instantiates them with its own.
class BytesQueryTest : public ApiTest, public ::testing::WithParamInterface<BytesQuery> {
protected:
    Lines LoggedByQuery(const Lines& after) const { return query_.first + Logged(method_, {}, after); }

    const BytesQuery& query_ = GetParam();
    const std::string method_ = GetParam().method;
};

// --- Calls that expect that the function leaves the caller's memory alone ---

inline int UnansweredActiveSpeakers()
{
    Guarded<char, NETSPK_LIST_NAME_LEN> name;
    Guarded<char, NETSPK_SPEAKER_TYPE_LEN + 1> type;
    std::vector<spk_info_s> list;
    const int result = GetActiveNetSpkInfo(name.Data(), type.Data(), list);
    EXPECT_TRUE(name.IsUntouched() && type.IsUntouched() && list.empty());
    return result;
}

inline int UnansweredSoundMode()
{
    Guarded<unsigned char, 10> identity;
    Guarded<unsigned char, 20> data;
    const int result = GetSoundbarSoundMode(identity.Data(), data.Data());
    EXPECT_TRUE(identity.IsUntouched() && data.IsUntouched());
    return result;
}

inline int UnansweredDeviceInfo()
{
    Guarded<unsigned char, 10> identity;
    const int result = GetSoundbarDeviceInfo(identity.Data());
    EXPECT_TRUE(identity.IsUntouched());
    return result;
}

inline int UnansweredProtocolVersion()
{
    Guarded<unsigned char, 20> version;
    const int result = GetSoundbarProtocolVersion(kMac, version.Data(), 20);
    EXPECT_TRUE(version.IsUntouched());
    return result;
}

} // namespace kiv::test
