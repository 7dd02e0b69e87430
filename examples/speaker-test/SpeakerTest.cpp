#include <KivServiceInterface.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <semaphore>
#include <string>

namespace {

using namespace std::chrono_literals;

const STNetSpkConfig kLeft = {0, 1, {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01}, {}};

int Start()
{
    std::vector<STNetSpkConfig> speakers{kLeft};
    return StartNetworkSpeaker(NETSPKSETTING_SURROUND, speakers, 0);
}

// Runs "kiv-sandbox control" with these arguments, quoted for a shell. Returns the program's output.
std::string Control(const std::string& arguments)
{
    std::string output;
    FILE* const pipe = popen(("\"$KIV_SANDBOX\" control " + arguments).c_str(), "r");
    for (int byte = std::fgetc(pipe); byte != EOF; byte = std::fgetc(pipe)) {
        output += static_cast<char>(byte);
    }
    EXPECT_EQ(pclose(pipe), 0) << "kiv-sandbox control " << arguments;
    return output;
}

TEST(SpeakerTest, ASpeakerStarts)
{
    EXPECT_EQ(Start(), 1);
}

TEST(SpeakerTest, AStartThatFailsSucceedsTheNextTime)
{
    Control(R"(fault StartNetworkSpeaker '{"error": "org.example.Busy", "count": 1}')");
    EXPECT_EQ(Start(), -1);
    EXPECT_EQ(Start(), 1);
}

TEST(SpeakerTest, TheServerIsToldTheVolume)
{
    Control("forget-calls");
    SetNetSpkVolume(kLeft.mac, 0, 33);
    const std::string calls = Control("calls");
    EXPECT_NE(calls.find(" SetNetSpkVolume(0x02, 0x4b, 0x49, 0x56, 0x00, 0x01, 0, 33)\n"), std::string::npos) << calls;
}

// The simulated server reports volumes by this event. Its data begin with the speaker's MAC address.
constexpr int kVolumeEvent = 0x02020040;
// This is global, because a callback may still run after its subscription, and the test, have ended.
std::counting_semaphore<> g_told{0};

TEST(SpeakerTest, ANewVolumeIsTold)
{
    const auto onEvent = [](int id, void* data, int length) {
        if (id == kVolumeEvent && length >= NETSPK_MAC_LEN && std::memcmp(data, kLeft.mac, NETSPK_MAC_LEN) == 0) {
            g_told.release();
        }
    };
    ASSERT_EQ(SubscribeNamServiceCallback("test", onEvent), 1);
    // The test asks several times, because an event that the server sends before the library is ready is lost.
    bool told = false;
    for (int attempt = 0; !told && attempt < 100; ++attempt) {
        SetNetSpkVolume(kLeft.mac, 0, 33);
        told = g_told.try_acquire_for(100ms);
    }
    UnsubscribeNamServiceCallback("test");
    EXPECT_TRUE(told);
}

TEST(NoSpeakersTest, NothingStarts)
{
    EXPECT_EQ(Start(), 0);
}

} // namespace
