// ominspect-room-check: looks at the items of the room. ominspect-room runs it, once for each request.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "call/credentials.h"
#include "common/program_path.h"
#include "common/schema.h"
#include "common/table.h"
#include "common/text.h"
#include "item.h"
#include "once.h"
#include "options.h"
#include "settings.h"

namespace {

using namespace room;

int Print(const std::string& text, int code) {
    const bool printed = std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
    if (!printed) {
        Complain("cannot write the output");
    }
    return printed ? code : kFailed;
}

// The file that is named, else the one in /etc, else none.
ominspect::Result<Settings> ReadSettings(const Options& options) {
    const std::string path = options.config.empty() ? OMINSPECT_ROOM_FILE : options.config;
    auto settings =
        options.config.empty() && !std::filesystem::exists(path) ? ParseSettings("<Room/>") : LoadSettings(path);
    if (settings) {
        settings->root = options.root;
    }
    return settings;
}

// The schema states the rules that the reader enforces; editors use it.
bool IsAsTheSchemaHasIt(const std::string& path) {
    const auto schema = ominspect::ProgramBeside(OMINSPECT_SCHEMAS "/room.xsd");
    const auto errors = schema ? ominspect::SchemaErrors(*schema, path) : schema.Failure();
    if (!errors) {
        Complain("not checked against the schema: " + ominspect::text::Escaped(errors.Failure().text));
        return true;
    }
    for (const std::string& error : *errors) {
        Complain(ominspect::text::Escaped(path) + ": " + ominspect::text::Escaped(error));
    }
    return errors->empty();
}

// Whether the user who runs this can use the file with the secrets, if one is named.
bool HasCredentials(const std::string& path, const Settings& settings) {
    const auto& server = settings.call.ldapServer;
    if (!server || server->credentials.empty()) {
        return true;
    }
    const auto credentials = LoadCredentials(server->credentials);
    if (!credentials) {
        Complain(ominspect::text::Escaped(path) + ": credentials of LdapServer: " + credentials.Failure().text);
    }
    return static_cast<bool>(credentials);
}

int Check(const std::string& path) {
    const auto settings = LoadSettings(path);
    if (!settings) {
        Complain(settings.Failure().text);
        return kWrongUse;
    }
    const bool isAsTheSchemaHasIt = IsAsTheSchemaHasIt(path);
    if (!HasCredentials(path, *settings) || !isAsTheSchemaHasIt) {
        return kWrongUse;
    }
    return Print(ominspect::text::Escaped(path) + ": no mistakes; " + std::to_string(ServedItems(*settings).size()) +
                     " items are served\n",
                 kPassed);
}

int Describe() {
    std::vector<std::vector<std::string>> rows;
    for (const Item& item : AllItems()) {
        rows.push_back({std::string(item.name), std::string(item.looksAt)});
    }
    return Print(ominspect::text::Table(rows) + "\n", kPassed);
}

int List(const Settings& settings) {
    std::string lines;
    for (const Item& item : ServedItems(settings)) {
        lines +=
            std::string(item.name) + ' ' + std::to_string(item.limitSeconds) + (item.isSync ? " sync\n" : " async\n");
    }
    return Print(lines, kPassed);
}

// The convention of the monitoring plugins: a line, and an exit code that stands for the status.
int AnswerWith(const Finding& finding) {
    switch (finding.status) {
        case Status::Success:
            return Print(finding.text + "\n", 0);
        case Status::Warn:
            return Print(finding.text + "\n", 1);
        case Status::Fail:
            return Print(finding.text + "\n", 2);
        case Status::Unknown:
            break;
    }
    return Print(finding.text + "\n", 3);
}

// A mistake in the file is answered too, so that the requester learns why nothing was checked.
int Answer(const ominspect::Result<Settings>& settings, const std::string& name) {
    if (!settings) {
        return AnswerWith(Unknown(settings.Failure().text));
    }
    const std::vector<Item> items = AllItems();
    const Item* item = FindItem(items, name);
    if (item == nullptr) {
        return AnswerWith(Unknown("no such item"));
    }
    return AnswerWith(item->check(*settings));
}

int Once(const Settings& settings, const Options& options) {
    const std::vector<Item> known = AllItems();
    std::vector<Item> items = options.once.empty() ? ServedItems(settings) : std::vector<Item>();
    for (const std::string& name : options.once) {
        const Item* item = FindItem(known, name);
        if (item == nullptr) {
            Complain(ominspect::text::Escaped(name) + ": no such item; see " + kProgram + " --describe");
            return kWrongUse;
        }
        items.push_back(*item);
    }
    std::vector<std::string> command{"/proc/self/exe"};
    if (!options.config.empty()) {
        command.insert(command.end(), {"--config", options.config});
    }
    if (!options.root.empty()) {
        command.insert(command.end(), {"--root", options.root});
    }
    command.emplace_back("--answer");
    const auto results = LookOnce(items, command);
    if (!results) {
        Complain("interrupted");
        return kInterrupted;
    }
    int code = kPassed;
    std::vector<std::vector<std::string>> rows{{"ITEM", "STATUS", "TEXT"}};
    for (const auto& result : *results) {
        rows.push_back({result.name, result.status, ominspect::text::Escaped(result.text)});
        code = std::string(result.status) == "success" ? code : kFailed;
    }
    return Print(ominspect::text::Table(rows) + "\n", code);
}

int Main(int argc, char** argv) {
    Options options;
    if (const auto code = ReadOptions(argc, argv, options)) {
        return *code;
    }
    if (!options.check.empty()) {
        return Check(options.check);
    }
    if (options.describe) {
        return Describe();
    }
    const auto settings = ReadSettings(options);
    if (!options.answer.empty()) {
        return Answer(settings, options.answer);
    }
    if (!settings) {
        Complain(settings.Failure().text);
        return kWrongUse;
    }
    if (options.list) {
        return List(*settings);
    }
    if (options.isOnce) {
        return Once(*settings, options);
    }
    Complain("nothing to do; see --help");
    return kWrongUse;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (const std::exception& error) {
        room::Complain(error.what());
        return room::kUnreachable;
    }
}
