#include "simulator/Scenario.h"

#include "simulator/SimulatorTest.h"
#include "simulator/World.h"

#include <fstream>
#include <set>

namespace kiv::simulator::scenario_test {
namespace {

using nlohmann::json;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

std::string Complaint(const std::string& text)
{
    try {
        ReadScenario("file", text);
    } catch (const FileError& error) {
        return error.what();
    }
    return "none";
}

json HomeOf(const std::string& text)
{
    const World world(ReadScenario("file", text));
    return world.home.ToJson();
}

// Puts an object of a kind into a scenario.
json Wrapped(const std::string& kind, const json& object)
{
    const std::map<std::string, json::json_pointer> places = {
        {"scenario", json::json_pointer("")},
        {"appointment", json::json_pointer("/timetable/0")},
        {"home", json::json_pointer("/home")},
        {"speaker", json::json_pointer("/home/speakers/0")},
        {"soundbar", json::json_pointer("/home/soundbars/0")},
        {"fault", json::json_pointer("/faults/*")},
        {"event", json::json_pointer("/events/0")},
    };
    json scenario;
    scenario[places.at(kind)] = object;
    return scenario;
}

class SchemaTest : public ::testing::Test {
protected:
    SchemaTest() : schema_(json::parse(std::ifstream(KIV_SCENARIO_SCHEMA))) {}

    const json& Kind(const std::string& kind) const { return schema_.at("$defs").at(kind); }
    const json& Properties(const std::string& kind) const { return Kind(kind).at("properties"); }

    // Returns an object with its required keys, and an example of the key.
    json Example(const std::string& kind, const std::string& key) const
    {
        json object = json::object();
        for (const json& required : Kind(kind).value("required", json::array())) {
            object[required.get<std::string>()] = Properties(kind).at(required).at("examples")[0];
        }
        object[key] = Properties(kind).at(key).at("examples")[0];
        if (key == "message") {
            object["error"] = "org.example.Bad";
        }
        if (key == "count" || (key == "every" && kind == "fault")) {
            object["delay"] = 1;
        }
        if (kind == "event" && key != "payload") {
            object["id"] = 1;
        }
        return object;
    }

    json schema_;
};

TEST_F(SchemaTest, HasTheKeysThatTheLoaderAccepts)
{
    const auto kinds = ScenarioKeys();
    EXPECT_THAT(kinds, SizeIs(7));
    for (const auto& [kind, keys] : kinds) {
        std::set<std::string> inSchema;
        for (const auto& property : Properties(kind).items()) {
            inSchema.insert(property.key());
        }
        EXPECT_EQ(keys, inSchema) << kind;
        EXPECT_EQ(Kind(kind).at("additionalProperties"), false) << kind;
    }
    for (const auto& definition : schema_.at("$defs").items()) {
        EXPECT_EQ(definition.value().value("type", "") == "object", kinds.contains(definition.key()))
            << definition.key();
    }
}

TEST_F(SchemaTest, ItsExamplesAreAccepted)
{
    for (const auto& [kind, keys] : ScenarioKeys()) {
        for (const std::string& key : keys) {
            EXPECT_EQ(Complaint(Wrapped(kind, Example(kind, key)).dump()), "none") << kind << " " << key;
        }
    }
}

TEST_F(SchemaTest, ValuesOfNoTypeThatItAllowsAreRefused)
{
    for (const auto& [kind, keys] : ScenarioKeys()) {
        for (const std::string& key : keys) {
            json object = Example(kind, key);
            object[key] = 1.5;
            EXPECT_THAT(Complaint(Wrapped(kind, object).dump()), HasSubstr("/" + key + ": must be ")) << kind;
        }
    }
}

TEST_F(SchemaTest, WhatItRequiresIsRequired)
{
    for (const auto& [kind, keys] : ScenarioKeys()) {
        for (const json& required : Kind(kind).value("required", json::array())) {
            json object = Example(kind, required);
            object.erase(required.get<std::string>());
            EXPECT_THAT(
                Complaint(Wrapped(kind, object).dump()),
                HasSubstr('"' + required.get<std::string>() + "\" is missing"));
        }
    }
}

TEST(ScenarioTest, TheDocumentedOnesCanBeUsed)
{
    const std::string document = ReadText(KIV_SCENARIO_DOCUMENT, kLargestScenario);
    const std::string fence = "```json\n";
    int found = 0;
    for (auto at = document.find(fence); at != std::string::npos; at = document.find(fence, at)) {
        at += fence.size();
        EXPECT_EQ(Complaint(document.substr(at, document.find("```", at) - at)), "none");
        ++found;
    }
    EXPECT_GT(found, 0);
}

TEST(ScenarioTest, LeftOutAHomeIsTheSimulatorsOwn)
{
    EXPECT_EQ(HomeOf("{}"), Home().ToJson());
}

TEST(ScenarioTest, FillsInWhatIsLeftOutOfASpeaker)
{
    const json home = HomeOf(R"({"home": {"speakers": [
        {"name": "Hall", "mac": "02:00:00:00:00:01"},
        {"name": "Left", "mac": "02:00:00:00:00:02", "group": "Den", "ip": "10.0.0.9", "type": "Tall", "volume": 3,
         "connection": "direct", "channel": -1, "active": true, "watched": false},
        {"name": "Right", "mac": "02:00:00:00:00:03", "group": "Den", "connection": "none"}]}})");
    EXPECT_EQ(home["groups"], (json{"Hall", "Den"}));
    const json hall = {{"node", 1},       {"group", 1},      {"id", "KIV01"},           {"name", "Hall"},
                       {"type", "Shelf"}, {"volume", 20},    {"connection", "network"}, {"mac", "02:00:00:00:00:01"},
                       {"channel", 0},    {"active", false}, {"watched", true},         {"ip", "192.168.0.21"},
                       {"test", nullptr}};
    EXPECT_EQ(home["speakers"][0], hall);
    const json left = {{"node", 2},      {"group", 2},     {"id", "KIV02"},          {"name", "Left"},
                       {"type", "Tall"}, {"volume", 3},    {"connection", "direct"}, {"mac", "02:00:00:00:00:02"},
                       {"channel", -1},  {"active", true}, {"watched", false},       {"ip", "10.0.0.9"},
                       {"test", nullptr}};
    EXPECT_EQ(home["speakers"][1], left);
    EXPECT_EQ(home["discovered"][0]["group"], 2);
    EXPECT_EQ(home["surroundChannels"], 1);
}

TEST(ScenarioTest, SurroundFollowsFromTheModeUnlessItIsGiven)
{
    const std::string speaker = R"("speakers": [{"name": "x", "mac": "02:00:00:00:00:01", "active": true}])";
    EXPECT_EQ(HomeOf("{\"home\": {" + speaker + "}}")["surround"], true);
    EXPECT_EQ(HomeOf("{\"home\": {\"settingMode\": 81, " + speaker + "}}")["surround"], false);
    EXPECT_EQ(HomeOf("{\"home\": {\"surround\": false, " + speaker + "}}")["surround"], false);
}

TEST(ScenarioTest, RefusesWhatMakesNoSense)
{
    const auto speakers = [](const std::string& list) {
        return Complaint("{\"home\": {\"speakers\": [" + list + "]}}");
    };
    const std::string hall = R"({"name": "Hall", "mac": "02:00:00:00:00:01"})";
    EXPECT_THAT(speakers(hall + "," + hall), HasSubstr("/home/speakers/1: another speaker has the MAC address"));
    const auto hallWith = [&](const std::string& keys) {
        return speakers(R"({"name": "x", "mac": "02:00:00:00:00:01", )" + keys + "}");
    };
    EXPECT_THAT(hallWith(R"("connection": "none", "active": true)"), HasSubstr("cannot be active"));
    EXPECT_THAT(hallWith(R"("ip": "1")"), HasSubstr(R"(/ip: must be an IP address such as "192.168.0.21", got "1")"));
    EXPECT_THAT(
        speakers(R"({"name": "x", "mac": "02"})"),
        HasSubstr(R"(/mac: must be a MAC address such as "02:4b:49:56:00:01", got "02")"));
    const std::vector<std::pair<std::string, std::string>> reasons = {
        {R"({"feature": "perhaps"})", R"(/feature: must be one of on, off, absent, got "perhaps")"},
        {R"({"timetable": [{}]})", R"(/timetable/0: "at" is missing)"},
        {R"({"timetable": [{"at": 1, "every": 0}]})",
         "/timetable/0/every: must be a whole number from 1 to 2147483647, got 0"},
        {R"({"events": [{}]})", R"(either "id" and perhaps "data", or "payload", got {})"},
        {R"({"events": [{"id": 1, "payload": ""}]})", R"(either "id")"},
        {R"({"events": [{"data": "01", "payload": ""}]})", R"(either "id")"},
        {R"({"events": [{"id": "020"}]})", "/events/0/id: must be a number, or a text in hexadecimal"},
        {R"({"events": [{"id": "0x"}]})", "/events/0/id: must be a number, or a text in hexadecimal"},
        {R"({"events": [{"id": "0x123456789"}]})", "/events/0/id: must be a number, or a text in hexadecimal"},
        {R"({"events": [{"id": 1, "client": "no name"}]})", "must be letters, digits and '_'"},
        {R"({"faults": {"Nonsense": null}})", "/faults/Nonsense: the server has no method"},
        {R"({"faults": {"DisableSurround": {"silent": true, "exit": true}}})",
         "/faults/DisableSurround: a fault must have at most one"},
        {R"({"faults": {"DisableSurround": {"reply": "(1"}}})", R"(must be a value in GVariant text form, got "(1": )"},
        {R"({"faults": {"StartNetwrkSpeaker": {"exit": true}}})",
         R"(/faults/StartNetwrkSpeaker: the server has no method "StartNetwrkSpeaker"; did you mean StartNetworkSpeaker?)"},
        {R"({"faults": {"StopNetworkSpeaker": {"append": "01"}}})",
         "needs a method whose answer has bytes, got StopNetworkSpeaker"},
        {R"({"faults": {"DisableSurround": {"data": "01"}}})",
         "/data: there is no such key; known are append, bytes, "},
        {R"({"faults": {"DisableSurround": {"data": "01"}}})", "; did you mean bytes?"},
        {R"({"events": [{"id": 1, "bytes": "01"}]})", "; did you mean data?"},
        {R"({"timetabel": []})", "; did you mean timetable?"},
        {R"({"faults": {"DisableSurround": {"delay": -1}}})", "/delay: must be a whole number"},
        {R"({"home": {"soundbars": [{"name": "x", "mac": "02:00:00:00:00:01", "ip": "1.1.1.1", "soundMode": ")" +
             std::string(42, '0') + "\"}]}}",
         R"(must be at most 20 bytes, got ")"},
    };
    for (const auto& [scenario, reason] : reasons) {
        EXPECT_THAT(Complaint(scenario), HasSubstr(reason)) << scenario;
    }
}

TEST(ScenarioTest, ReadsATimetable)
{
    const Scenario scenario = ReadScenario(
        "file",
        R"({"timetable": [{"at": 5, "away": 7}, {"at": 6, "every": 8, "events": [{"id": -2, "data": "05"}]}]})");
    ASSERT_TRUE(scenario.timetable);
    ASSERT_THAT(*scenario.timetable, SizeIs(2));
    const Appointment& first = scenario.timetable->front();
    EXPECT_EQ(first.at.count(), 5);
    EXPECT_EQ(first.every, std::nullopt);
    EXPECT_EQ(first.change.away, std::chrono::milliseconds(7));
    const Appointment& second = scenario.timetable->back();
    EXPECT_EQ(second.every, std::chrono::milliseconds(8));
    ASSERT_THAT(second.change.events, SizeIs(1));
    EXPECT_THAT(BytesOf(second.change.events[0].payload.get()), ElementsAre(0xfe, 0xff, 0xff, 0xff, 1, 0, 0, 0, 5));
    EXPECT_EQ(ReadScenario("file", "{}").timetable, std::nullopt);
}

} // namespace
} // namespace kiv::simulator::scenario_test
