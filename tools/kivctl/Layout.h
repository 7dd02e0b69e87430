#pragma once

#include "tools/kivctl/Output.h"
#include "tools/kivctl/Values.h"

#include <CLI/CLI.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kiv::ctl {

// The names of the records that the library's functions return.
inline constexpr const char* kSpeakerRecord = "speaker";
inline constexpr const char* kListRecord = "list";
inline constexpr const char* kNodeRecord = "node";

// The name of the event by which the server reports volumes.
inline constexpr const char* kVolumeEvent = "volume";

// Describes where the fields of the server's records are. docs/layouts.md describes the file.
class Layout {
public:
    struct Field {
        std::string name;
        size_t offset = 0;
        size_t size = 0;
        std::string type;
        std::string record; // the name of the record, for the type records
        std::string filled; // the field with the number of used records, for the type records
    };

    struct Record {
        size_t size = 0;
        std::vector<Field> fields;
    };

    struct Event {
        std::string name;
        std::string record;
    };

    // Makes a layout that knows no record.
    Layout() = default;

    // Reads a file. Throws BadArguments if it cannot be used.
    explicit Layout(const std::string& path);

    bool Knows(const std::string& record) const { return records_.contains(record); }

    // Returns null if the file does not describe the event.
    const Event* FindEvent(int id) const;

    // Returns whether the file has an event of that name.
    bool HasEvent(const std::string& name) const;

    // Returns an object for each whole record in the bytes. The layout must know the record.
    Json Decode(const std::string& record, Bytes bytes) const;

private:
    Json DecodeOne(const Record& record, Bytes bytes) const;
    Json DecodeField(const Record& record, const Field& field, Bytes bytes) const;

    std::map<std::string, Record> records_;
    std::map<uint32_t, Event> events_;
};

// Adds the option that names the file. Without it, the environment variable KIV_LAYOUT names the file.
void AddLayout(CLI::App& app, std::string& path);

// Returns the layout that the option or the environment names. Throws BadArguments if it cannot be used.
Layout LayoutOf(const std::string& path);

// Returns a table of at least one decoded record, with a column for each field. Records that contain records get a
// table each.
std::string RecordsText(const Json& records);

// Returns decoded records in one line.
std::string RecordsLine(const Json& records);

} // namespace kiv::ctl
