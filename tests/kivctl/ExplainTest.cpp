#include "kivctl/KivctlTest.h"
#include "src/link/Owners.h"

#include <sys/stat.h>

#include <fstream>
#include <regex>
#include <stdexcept>

namespace kiv::ctl::explain_test {
namespace {

using namespace std::string_literals;

const std::string kMethodCallError = "KivServiceInterface.cpp: StopNetworkSpeaker(89) > [NAM_API] MethodCall Error";
constexpr const char* kExplained =
    "\n    = the function's request failed\n    -> the line before it gives the reason\n";

std::string Text(GBytes* bytes)
{
    gsize size = 0;
    const void* data = g_bytes_get_data(bytes, &size);
    return {static_cast<const char*>(data), size};
}

Ended RunExplain(const std::string& log, const Arguments& arguments)
{
    std::vector<const char*> argv = {KIV_CTL, "explain"};
    for (const std::string& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    argv.push_back(nullptr);
    constexpr int kPipes =
        G_SUBPROCESS_FLAGS_STDIN_PIPE | G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_PIPE;
    link::ErrorOwner error;
    const link::ObjectOwner<GSubprocess> process(
        g_subprocess_newv(argv.data(), static_cast<GSubprocessFlags>(kPipes), error.Out()));
    if (process == nullptr) {
        throw std::runtime_error(error->message);
    }
    const link::BytesOwner in(g_bytes_new(log.data(), log.size()));
    g_autoptr(GBytes) out = nullptr;
    g_autoptr(GBytes) err = nullptr;
    if (g_subprocess_communicate(process.get(), in.get(), nullptr, &out, &err, error.Out()) == FALSE) {
        throw std::runtime_error(error->message);
    }
    return {g_subprocess_get_exit_status(process.get()), Text(out), Text(err)};
}

std::string Explain(const std::string& log, const Arguments& arguments = {})
{
    const Ended explained = RunExplain(log, arguments);
    EXPECT_EQ(explained.exitCode, 0) << explained.err;
    return explained.out;
}

std::vector<Json> ExplainToScripts(const std::string& log)
{
    std::vector<Json> objects;
    for (const std::string& line : LinesOf(Explain(log, {"--json"}))) {
        objects.push_back(Json::parse(line));
    }
    return objects;
}

// A row of the page, without markup.
struct Row {
    std::string section;
    std::string line;
    std::vector<std::string> cells; // the others
};

std::vector<Row> PageRows()
{
    std::ifstream page(KIV_LOG_LINES);
    std::vector<Row> rows;
    std::string section;
    for (std::string text; std::getline(page, text);) {
        std::smatch match;
        if (text.starts_with("## ")) {
            section = text.substr(3);
        } else if (std::regex_match(text, match, std::regex(R"(\| `([^`]*)` \| (.*) \|)"))) {
            Row row{section, match[1], {}};
            std::string rest = std::regex_replace(match[2].str(), std::regex(R"(\[([^\]]*)\]\([^)]*\)|`)"), "$1");
            for (size_t at = 0; (at = rest.find(" | ")) != std::string::npos; rest.erase(0, at + 3)) {
                row.cells.push_back(rest.substr(0, at));
            }
            row.cells.push_back(rest);
            rows.push_back(row);
        }
    }
    return rows;
}

std::string WithValues(std::string line)
{
    line = std::regex_replace(line, std::regex("%s"), "some text");
    line = std::regex_replace(line, std::regex("%02x"), "ffffff80");
    line = std::regex_replace(line, std::regex("%p"), "0x7f12ab");
    line = std::regex_replace(line, std::regex("%ld|%d"), "-1");
    return std::regex_replace(line, std::regex("%zu|%u"), "4294967168");
}

void ExpectExplained(const std::string& function, const std::string& text, const Row& row, size_t meaning)
{
    const std::string line = "KivServiceInterface.cpp: " + function + "(1) > " + text;
    const std::vector<Json> explained = ExplainToScripts(line + '\n');
    ASSERT_EQ(explained.size(), 1U);
    EXPECT_EQ(
        explained[0], Json(
                          {{"line", line},
                           {"function", function},
                           {"known", true},
                           {"meaning", row.cells.at(meaning)},
                           {"advice", row.cells.size() > meaning + 1 ? row.cells.at(meaning + 1) : ""}}));
}

TEST(ExplainTest, SaysOfEachLineWhatThePageSays)
{
    const std::vector<Row> rows = PageRows();
    ASSERT_GT(rows.size(), 100U);
    for (const Row& row : rows) {
        const std::string text = WithValues(row.line);
        if (row.section.starts_with("Reasons of ")) {
            ExpectExplained("MethodCall", "[NAM_API] Error: method [Method],[" + text + "]...", row, 0);
        } else if (row.section == "Information" || row.section == "Debug") {
            const std::string functions = row.cells[0] == "itself" ? row.line : row.cells[0];
            const std::regex name(R"((^|, )(\w+)(?=,|$))");
            for (std::sregex_iterator at(functions.begin(), functions.end(), name), end; at != end; ++at) {
                ExpectExplained((*at)[2], text, row, 1);
            }
        } else {
            ExpectExplained("StopNetworkSpeaker", text, row, 0);
        }
    }
}

TEST(ExplainTest, ReadsTheFormsThatLogsHave)
{
    for (const std::string before :
         {"", "12:34:56.789 E NAM_SERVICE: ", "Nov 22 12:34:56 tv NAM_SERVICE[123]: ",
          "11-22 12:34:56.789+0100 E/NAM_SERVICE( 123): ", "11-22 12:34:56.789 E NAM_SERVICE(P 123, T 124): "}) {
        EXPECT_EQ(Explain(before + kMethodCallError + '\n'), before + kMethodCallError + kExplained);
    }
    // The last line may have no line end, and the log of another system may have other line ends.
    EXPECT_EQ(Explain(kMethodCallError), kMethodCallError + kExplained);
    EXPECT_EQ(Explain(kMethodCallError + "\r\n"), kMethodCallError + "\r" + kExplained);
    EXPECT_EQ(Explain(""), "");
}

TEST(ExplainTest, FindsTheTextThatALoggerHasWrapped)
{
    const std::string& line = kMethodCallError;
    const std::string json = Json({{"_PID", "12"}, {"MESSAGE", line}, {"PRIORITY", "3"}}).dump();
    for (const std::string& wrapped :
         {json, "Nov 22 12:34:56 tv NAM_SERVICE[1]: message repeated 4 times: [ " + line + "]",
          "\x1b[31m" + line + "\x1b[0m", "message repeated 2 times: [ " + line + "]\x1b[0m"}) {
        EXPECT_EQ(Explain(wrapped + '\n'), wrapped + kExplained);
    }
}

TEST(ExplainTest, ReadsAMessageThatIsAnArrayOfBytes)
{
    for (const std::string& message :
         {kMethodCallError, "\x1b[31m" + kMethodCallError + "\x1b[0m", "\xff " + kMethodCallError}) {
        Json bytes = Json::array();
        for (const char character : message) {
            bytes.push_back(static_cast<unsigned char>(character));
        }
        const std::string line = Json({{"MESSAGE", bytes}}).dump();
        EXPECT_EQ(Explain(line + '\n'), line + kExplained);
    }
    const Json several = {"another line", {1, 2}, kMethodCallError, "KivServiceInterface.cpp: "};
    const std::string line = Json({{"MESSAGE", several}}).dump();
    EXPECT_EQ(Explain(line + '\n'), line + kExplained);
    const std::string others =
        "{\"MESSAGE\":null}\n{\"MESSAGE\":[256]}\n{\"MESSAGE\":[-1]}\n{\"MESSAGE\":[[75],\"K\"]}\n";
    EXPECT_EQ(Explain(others), others);
}

TEST(ExplainTest, ReadsTheOtherJsonOfJournalctl)
{
    const std::string member = "\"MESSAGE\" : \"" + kMethodCallError + '"';
    for (const std::string& line :
         {'\t' + member + ',', '\t' + member, "  " + member + " ,\r", "\x1e{" + member + '}',
          "data: {" + member + '}'}) {
        EXPECT_EQ(Explain(line + '\n'), line + kExplained);
    }
    const Ended split = RunExplain("{\n\t\"MESSAGE\" : [\n\t\t75,\n\t\t27\n\t]\n}\n", {});
    EXPECT_EQ(split.exitCode, 0);
    EXPECT_THAT(split.err, StartsWith("kivctl: journalctl -o json-pretty writes "));
    EXPECT_THAT(split.err, HasSubstr("1 of them was not read; write the log with -o json or cat\n"));
}

TEST(ExplainTest, LeavesOtherLinesAlone)
{
    const std::string others = "kernel: usb 1-1: new device\n\n\xff\xfe(no UTF-8)\n{\"no\": \"message\"}\n{no JSON\n";
    EXPECT_EQ(Explain(others), others);
    EXPECT_EQ(ExplainToScripts("kernel: usb\n"), std::vector<Json>{Json({{"line", "kernel: usb"}})});
}

TEST(ExplainTest, SaysThatALineIsUnknown)
{
    const std::string line = "KivServiceInterface.cpp: StopNetworkSpeaker(89) > [NAM_API] something new";
    const std::string out = Explain(line + '\n');
    EXPECT_THAT(out, StartsWith(line + "\n    = not known to kivctl "));
    EXPECT_THAT(out, HasSubstr(": cut short, or wrapped by the logger, or of another version of the library\n    -> "));
    EXPECT_EQ(ExplainToScripts(line + '\n').at(0).at("known"), false);
}

TEST(ExplainTest, SaysThatALineIsCutBeforeItsText)
{
    const std::string& line = kMethodCallError;
    const size_t file = line.find(' ') + 1;
    const size_t text = line.find("> ") + 2;
    for (size_t length = file; length < text; ++length) {
        const std::string cut = line.substr(0, length);
        const std::string out = Explain("NAM_SERVICE: " + cut + '\n');
        EXPECT_THAT(out, StartsWith("NAM_SERVICE: " + cut + "\n    = cut short before its text, "));
        EXPECT_THAT(out, HasSubstr("\n    -> have the log keep longer lines"));
    }
    const Json object = ExplainToScripts(line.substr(0, text - 1) + '\r').at(0);
    EXPECT_EQ(object.at("function"), "StopNetworkSpeaker");
    EXPECT_EQ(object.at("known"), false);

    const std::string others = "KivServiceInterface.cpp: In function 'int Stop()':\n"
                               "KivServiceInterface.cpp: Stop(int)\nKivServiceInterface.cpp: Stop(89) or\n";
    EXPECT_EQ(Explain(others), others);
}

TEST(ExplainTest, ExplainsATextThatIsCutButUnambiguous)
{
    const std::string before = "KivServiceInterface.cpp: Get(1) > ";
    const Json cut = ExplainToScripts(before + "soundmodeDat\n").at(0);
    EXPECT_EQ(cut.at("known"), true);
    EXPECT_THAT(cut.at("meaning").get<std::string>(), StartsWith("the sound-mode data begins with 1")) << cut;
    EXPECT_THAT(cut.at("meaning").get<std::string>(), EndsWith(" (the line is cut short)")) << cut;
    EXPECT_THAT(cut.at("advice").get<std::string>(), StartsWith("compare what the server sends")) << cut;
    // The first is too short, and two lines begin like the second.
    for (const char* text : {"soundmodeDa", "!!! ERROR ns_proxy.GetProxy() return error,"}) {
        EXPECT_EQ(ExplainToScripts(before + text + '\n').at(0).at("known"), false) << text;
    }
}

TEST(ExplainTest, AdvisesWithNamesOfFilesAndManPages)
{
    const std::string denied = "KivServiceInterface.cpp: MethodCall(1) > [NAM_API] Error: method [Stop],"
                               "[GDBus.Error:org.freedesktop.DBus.Error.AccessDenied: no]...\n";
    EXPECT_THAT(Explain(denied), HasSubstr("share/dbus-1/system.d/org.lumra.tv.networkspeaker.conf"));
    EXPECT_THAT(
        Explain("KivServiceInterface.cpp: Get(1) > pTuple is NULL\n"), HasSubstr("the interface (man kiv-dbus)\n"));
}

TEST(ExplainTest, SkipsALineThatIsTooLong)
{
    const std::string longest = std::string(1024UL * 1024, 'x') + '\n';
    EXPECT_EQ(Explain(longest + kMethodCallError + '\n'), longest + kMethodCallError + kExplained);

    EXPECT_THAT(
        RunExplain("first\nx" + longest + kMethodCallError + '\n', {}),
        Ends(0, "first\n" + kMethodCallError + kExplained, "kivctl: skipped 1 line of over 1048576 bytes\n"));
    EXPECT_EQ(RunExplain('x' + longest, {}).out, "");
}

TEST(ExplainTest, SkipsNulBytes)
{
    const std::string run(4096, '\0');
    const std::string explained = kMethodCallError + kExplained;
    for (const std::string& log :
         {run + kMethodCallError, kMethodCallError + run, run + '\n' + kMethodCallError + '\n' + run}) {
        EXPECT_EQ(Explain(log), explained);
    }
    // The line before the run is cut, and the line behind it is whole.
    const std::string head = "KivServiceInterface.cpp: Stop";
    const Ended cut = RunExplain(head + run + kMethodCallError + run + "last\n", {});
    EXPECT_EQ(cut.exitCode, 0);
    EXPECT_THAT(cut.out, StartsWith(head + "\n    = cut short before its text"));
    EXPECT_THAT(cut.out, EndsWith('\n' + explained + "last\n"));
    EXPECT_EQ(cut.err, "kivctl: skipped NUL bytes, which a power cut leaves in a log: 8192 in 2 places\n");
}

TEST(ExplainTest, BinaryDataIsRefused)
{
    EXPECT_THAT(
        RunExplain("", {"/dev/zero"}),
        Ends(2, _, "kivctl: /dev/zero: must be a text log, got binary data; unpack it first\n"));
    // These are the beginnings of gzip, xz, the journal's own files, and UTF-16.
    for (const std::string& head :
         {"\x1f\x8b\x08\0\0"s, "\xfd\x37zXZ\0\0\x04"s, "LPKSHHRH\0\0\0\0\x0c\0\0\0\0"s, "\xff\xfeK\0i\0"s}) {
        EXPECT_THAT(
            RunExplain(head + kMethodCallError, {}),
            Ends(2, "", "kivctl: stdin: must be a text log, got binary data; unpack it first\n"));
    }
}

TEST(ExplainTest, SaysThatALogHasNoLineOfTheLibrarys)
{
    const Ended others = RunExplain("kernel: usb\n\n", {});
    EXPECT_EQ(others.exitCode, 0);
    EXPECT_THAT(others.err, StartsWith("kivctl: none of 2 lines is the library's; "));
    for (const char* part : {"KivServiceInterface.cpp: ", "KIV_LOG_LEVEL=info", "journalctl -t NAM_SERVICE"}) {
        EXPECT_THAT(others.err, HasSubstr(part));
    }
    EXPECT_THAT(RunExplain("", {}).err, StartsWith("kivctl: the log is empty; "));
    EXPECT_THAT(
        RunExplain(std::string(100, '\0'), {}).err,
        HasSubstr("\nkivctl: none of the remaining lines is the library's; "));
    EXPECT_EQ(RunExplain(kMethodCallError, {}).err, "");
    EXPECT_EQ(RunExplain("kernel: usb\n", {"--json"}).err, "");
}

class ExplainFileTest : public KivctlTest {};

TEST_F(ExplainFileTest, ReadsTheFileThatIsNamed)
{
    const std::string explained = kMethodCallError + kExplained;
    EXPECT_EQ(Explain("", {WriteFile(kMethodCallError)}), explained);
    EXPECT_EQ(Explain(kMethodCallError, {"-"}), explained);
    ExpectFailure({"explain", bus_.Directory() / "absent"}, 2, "absent: No such file or directory");
    ExpectFailure({"explain", bus_.Directory()}, 2, ": Is a directory");
}

TEST_F(ExplainFileTest, ExplainsALineBeforeTheNextComes)
{
    const std::string fifo = bus_.Directory() / "log";
    ASSERT_EQ(mkfifo(fifo.c_str(), S_IRUSR | S_IWUSR), 0);
    Running explain(bus_, {"explain", fifo});
    std::ofstream log(fifo);
    log << kMethodCallError << std::endl;
    EXPECT_EQ(explain.OutLine(), kMethodCallError);
    EXPECT_EQ(explain.OutLine(), "    = the function's request failed");
    log.close();
    EXPECT_EQ(explain.Wait().exitCode, 0);
}

class LoggedLinesTest : public KivctlTest {
protected:
    // Runs a command, and checks that each line that the library logs meanwhile is explained.
    void Collect(Arguments arguments)
    {
        arguments.emplace_back("--verbose");
        const std::string log = Run(arguments).err;
        int count = 0;
        for (const Json& line : ExplainToScripts(log)) {
            if (line.contains("known")) {
                ++count;
                EXPECT_EQ(line.at("known"), true) << line;
                meanings_.push_back(line.at("meaning"));
            }
        }
        EXPECT_GT(count, 0) << log;
    }

    void ExpectMeaning(const std::string& part) const
    {
        for (const std::string& meaning : meanings_) {
            if (meaning.find(part) != std::string::npos) {
                return;
            }
        }
        ADD_FAILURE() << part << " is not among " << testing::PrintToString(meanings_);
    }

    std::vector<std::string> meanings_;
};

TEST_F(LoggedLinesTest, AreAllExplained)
{
    for (const Arguments& arguments : std::vector<Arguments>{
             {"start", kLeft},
             {"stop"},
             {"list", "all"},
             {"list", "nodes"},
             {"list", "active"},
             {"mode", "get"},
             {"volume", "up", kLeft, kRight},
             {"connect", "new", kLeft},
             {"soundbar", "mode", "get"},
             {"doctor"},
             {"name", kLeft, "Left"},
             {"soundbar", "version", kLeft},
             {"mode", "can-enter"},
             {"atmos"}}) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        Collect(arguments);
    }
}

TEST_F(LoggedLinesTest, TellTheReasonsOfTheServer)
{
    const struct {
        const char* key;
        const char* value;
        const char* meaning;
    } faults[] = {
        {"error", "'org.example.Broken'", "answered with that error"},
        {"error", "'org.freedesktop.DBus.Error.UnknownMethod'", "the server does not have the method"},
        {"silent", "true", "the server did not answer within 8 s"},
        {"reply", "<('text',)>", "another D-Bus type than agreed"},
    };
    for (const auto& [key, value, meaning] : faults) {
        SetFault("StopNetworkSpeaker", key, value);
        Collect({"stop"});
        ExpectMeaning(meaning);
    }
}

TEST_F(LoggedLinesTest, TellThatThePolicyForbidsTheCall)
{
    bus_.Activate(kServerName);
    Forbid(R"(<deny send_destination="org.lumra.tv.networkspeaker.server"
                    send_interface="org.lumra.tv.networkspeaker.server.interface"/>)");
    Collect({"stop"});
    ExpectMeaning("the bus's policy does not let this user call the server");
}

TEST_F(LoggedLinesTest, TellTheReasonsOfTheBus)
{
    bus_.WriteService({kServerName, {"/bin/false"}});
    Collect({"stop"});
    ExpectMeaning("the bus could not start the server");

    bus_.RemoveService(kServerName);
    Collect({"stop"});
    ExpectMeaning("the bus has no service file");

    bus_.Kill();
    Collect({"stop"});
    ExpectMeaning("no connection to the system bus");
}

// A bus that forbids the query answers with an error, which is not of the expected type.
TEST_F(LoggedLinesTest, TellThatTheBusForbidsTheQuestionForAnOwner)
{
    Forbid(
        R"(<deny send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus" send_member="NameHasOwner"/>)");
    Collect({"stop"});
    ExpectMeaning("is an error of the bus, which forbids the question");
    for (const std::string& meaning : meanings_) {
        EXPECT_THAT(meaning, Not(HasSubstr("the bus did not answer in 25 s")));
    }
}

} // namespace
} // namespace kiv::ctl::explain_test
