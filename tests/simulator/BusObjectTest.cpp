#include "simulator/BusObject.h"

#include "simulator/SimulatorTest.h"

namespace kiv::simulator::bus_object_test {
namespace {

using ::testing::HasSubstr;

constexpr char kXml[] = R"(<node><interface name="a.b">
    <method name="First"/><method name="Second"/>
</interface></node>)";

class BusObjectTest : public ::testing::Test {
protected:
    std::string Refusal(const char* xml, const std::set<std::string>& methods)
    {
        BusObject::Handlers handlers;
        for (const std::string& method : methods) {
            handlers[method] = [](const Call&) {};
        }
        try {
            const BusObject object(connection_.Get(), "/a/b", xml, handlers);
        } catch (const std::logic_error& error) {
            return error.what();
        }
        return "accepted";
    }

    sandbox::PrivateBus bus_;
    sandbox::Connection connection_{bus_.Address()};
};

TEST_F(BusObjectTest, XmlAndHandlersNameTheSameMethods)
{
    EXPECT_EQ(Refusal(kXml, {"First", "Second"}), "accepted");
    EXPECT_THAT(Refusal(kXml, {"First"}), HasSubstr("do not agree about Second"));
    EXPECT_THAT(Refusal(kXml, {"First", "Second", "Third"}), HasSubstr("do not agree about Third"));
    EXPECT_THAT(Refusal(kXml, {"Second", "Third"}), HasSubstr("do not agree about First, Third"));
}

TEST_F(BusObjectTest, RefusesBadXml)
{
    EXPECT_THAT(Refusal("<node>", {}), HasSubstr("introspection XML"));
    EXPECT_THAT(Refusal("<node/>", {}), HasSubstr("no interface"));
}

} // namespace
} // namespace kiv::simulator::bus_object_test
