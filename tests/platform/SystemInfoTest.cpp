#include "src/platform/Platform.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace kiv::platform {
namespace {

constexpr const char* kKey = "com.molvane/featureconf/kiv_multi_ch_support";
constexpr const char* kVariable = "KIV_SYSTEM_INFO_FILE";

// Returns the feature's value, or nothing if it cannot be read. Fails the test if a value is stored although it cannot
// be read.
std::optional<bool> Read(const char* key = kKey)
{
    std::optional<bool> answer;
    for (const bool before : {false, true}) {
        bool value = before;
        if (system_info_get_custom_bool(key, &value) == 0) {
            answer = value;
        } else {
            EXPECT_EQ(value, before);
            EXPECT_EQ(answer, std::nullopt);
        }
    }
    return answer;
}

class SystemInfo : public testing::Test {
protected:
    void SetUp() override
    {
        std::string pattern = std::filesystem::temp_directory_path() / "system-info-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        Choose(File());
    }

    void TearDown() override
    {
        unsetenv(kVariable);
        std::filesystem::remove_all(folder_);
    }

    std::filesystem::path File() const { return folder_ / "system-info.conf"; }

    static void Choose(const std::filesystem::path& path) { ASSERT_EQ(setenv(kVariable, path.c_str(), 1), 0); }

    void Write(const std::string& text) const { std::ofstream(File()) << text; }

    void WriteFeature(const std::string& value) const
    {
        Write("[com.molvane/featureconf]\nkiv_multi_ch_support=" + value + "\n");
    }

    std::filesystem::path folder_;
};

TEST_F(SystemInfo, ReadsAFeature)
{
    WriteFeature("true");
    EXPECT_EQ(Read(), true);
    WriteFeature("false");
    EXPECT_EQ(Read(), false);
}

TEST_F(SystemInfo, ReadsTheFileAgainAtEachCall)
{
    EXPECT_EQ(Read(), std::nullopt);
    WriteFeature("true");
    EXPECT_EQ(Read(), true);
    ASSERT_TRUE(std::filesystem::remove(File()));
    EXPECT_EQ(Read(), std::nullopt);
}

TEST_F(SystemInfo, CannotReadAFeatureThatIsAbsent)
{
    Write("");
    EXPECT_EQ(Read(), std::nullopt);
    Write("[com.molvane/featureconf]\nanother=true\n");
    EXPECT_EQ(Read(), std::nullopt);
    Write("[another]\nkiv_multi_ch_support=true\n");
    EXPECT_EQ(Read(), std::nullopt);
}

TEST_F(SystemInfo, CannotReadWhatIsNoBoolean)
{
    for (const char* value : {"maybe", "", "2", "true false", "\xff"}) {
        WriteFeature(value);
        EXPECT_EQ(Read(), std::nullopt) << value;
    }
}

TEST_F(SystemInfo, CannotReadAMalformedFile)
{
    Write("kiv_multi_ch_support=true\n");
    EXPECT_EQ(Read(), std::nullopt);
    Write("[com.molvane/featureconf\nkiv_multi_ch_support=true\n");
    EXPECT_EQ(Read(), std::nullopt);
}

TEST_F(SystemInfo, CannotReadWithoutAFile)
{
    Choose(folder_ / "absent" / "system-info.conf");
    EXPECT_EQ(Read(), std::nullopt);
    Choose(folder_);
    EXPECT_EQ(Read(), std::nullopt);
}

TEST_F(SystemInfo, CannotReadAKeyWithoutAGroupOrAName)
{
    WriteFeature("true");
    for (const char* key : {"", "/", "kiv_multi_ch_support", "/kiv_multi_ch_support", "com.molvane/featureconf/"}) {
        EXPECT_EQ(Read(key), std::nullopt) << key;
    }
}

TEST_F(SystemInfo, RefusesNull)
{
    WriteFeature("true");
    EXPECT_EQ(Read(nullptr), std::nullopt);
    EXPECT_NE(system_info_get_custom_bool(kKey, nullptr), 0);
}

TEST_F(SystemInfo, ReadsTheSampleFile)
{
    Choose(KIV_SAMPLE_SYSTEM_INFO_FILE);
    EXPECT_EQ(Read(), true);
}

} // namespace
} // namespace kiv::platform
