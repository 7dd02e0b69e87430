#include <KivServiceInterface.h>

#include <gtest/gtest.h>

#include <chrono>
#include <semaphore>

namespace {

using namespace std::chrono_literals;

const STNetSpkConfig kLeft = {0, 1, {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01}, {}};
std::counting_semaphore<> g_told{0};

TEST(SpeakerTest, ASpeakerStarts)
{
    std::vector<STNetSpkConfig> speakers{kLeft};
    EXPECT_EQ(StartNetworkSpeaker(NETSPKSETTING_SURROUND, speakers, 0), 1);
}

TEST(SpeakerTest, ANewVolumeIsTold)
{
    ASSERT_EQ(SubscribeNamServiceCallback("test", [](int, void*, int) { g_told.release(); }), 1);
    // Events can arrive a moment after the first call.
    bool told = false;
    for (int attempt = 0; !told && attempt < 100; ++attempt) {
        SetNetSpkVolume(kLeft.mac, 0, 33);
        told = g_told.try_acquire_for(100ms);
    }
    EXPECT_TRUE(told);
}

TEST(NoSpeakersTest, NothingStarts)
{
    std::vector<STNetSpkConfig> speakers{kLeft};
    EXPECT_EQ(StartNetworkSpeaker(NETSPKSETTING_SURROUND, speakers, 0), 0);
}

} // namespace
