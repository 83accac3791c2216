// halvex store: the stored feature sets of SCPI instruments.
#include "Command.h"
#include "FeatureStore.h"
#include "HostFiles.h"
#include "LibraryText.h"
#include "Options.h"

#include <HVX/ESC/FeaturesJson.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace halvex {
namespace {

struct StoreArguments {
    std::string action;
    std::vector<std::string> name; // NAME, SERIAL; reserved so that both stay bound
    std::string folder;
};

int List(const StoreArguments& given) {
    const std::vector<StoreItem> items = StoreItems();
    if (items.empty()) {
        std::printf("no feature sets in %s\n", given.folder.c_str());
        return exitOk;
    }
    for (const StoreItem& item : items)
        std::fputs(fmt::format("{}: {}, serial {}, {} feature{}\n", item.entry->fileName, item.key.manufacturer,
                               item.key.serial, item.entry->featureSet.features.size(),
                               item.entry->featureSet.features.size() == 1 ? "" : "s")
                       .c_str(),
                   stdout);
    return exitOk;
}

// The entry as its file holds it.
int Show(const StoreArguments& given) {
    const StoreItem item = FindStoreItem(given.name, given.folder);
    nlohmann::ordered_json json;
    json["version"] = 1;
    json["manufacturer"] = item.key.manufacturer;
    json["serial_id"] = item.key.serial;
    json["feature_set"] = item.entry->featureSet;
    std::fputs((json.dump(2) + "\n").c_str(), stdout);
    return exitOk;
}

int Remove(const StoreArguments& given) {
    const StoreItem item = FindStoreItem(given.name, given.folder);
    nrq::ESCMapStore::GetInstance().RemoveEntry(item.key.manufacturer, item.key.serial);
    std::fputs(fmt::format("removed {} ({}, serial {}) from {}\n", item.entry->fileName, item.key.manufacturer,
                           item.key.serial, given.folder)
                   .c_str(),
               stdout);
    return exitOk;
}

// A file as "show" prints it and the store keeps it, checked before it is taken.
int Add(const StoreArguments& given) {
    const std::string& path = given.name.front();
    const std::string text = ReadWholeFile(path);
    std::string manufacturer, serial;
    nrq::ESCFeatureSet set;
    try {
        const nlohmann::ordered_json json = nlohmann::ordered_json::parse(text);
        manufacturer = json.at("manufacturer").get<std::string>();
        serial = json.at("serial_id").get<std::string>();
        json.at("feature_set").get_to(set);
    } catch (const std::exception& error) {
        throw std::runtime_error(
            fmt::format("{} is not a feature-set file: {}", ShownName(path, false), PlainLibraryMessage(error.what())));
    }
    nrq::ESCMapStore& store = nrq::ESCMapStore::GetInstance();
    const bool replacing = store.FindEntry(manufacturer, serial) != nullptr;
    store.AddEntry(manufacturer, serial, "", set);
    const auto entry = store.FindEntry(manufacturer, serial);
    std::fputs(fmt::format("{} {} ({}, serial {}) in {}\n", replacing ? "replaced" : "added", entry->fileName,
                           manufacturer, serial, given.folder)
                   .c_str(),
               stdout);
    return exitOk;
}

int RunStore(const StoreArguments& given) {
    if (given.action == "list" && !given.name.empty())
        throw UsageError{fmt::format("store list takes no name, not '{}'", given.name.front())};
    if (given.action == "add" && given.name.size() != 1)
        throw UsageError{given.name.empty() ? std::string("store add needs FILE")
                                            : fmt::format("store add takes one FILE, not also '{}'", given.name[1])};
    if (given.action != "list" && given.name.empty())
        throw UsageError{fmt::format("store {} needs NAME, or MANUFACTURER SERIAL", given.action)};
    OpenStore(given.folder);
    if (given.action == "show")
        return Show(given);
    if (given.action == "remove")
        return Remove(given);
    if (given.action == "add")
        return Add(given);
    return List(given);
}

CommandRun Setup(CLI::App& command) {
    auto given = std::make_shared<StoreArguments>();
    given->name.reserve(2);
    command.description(
        "Lists, shows and removes the feature sets of SCPI analyzers: what each\n"
        "instrument was found to do, kept as one JSON file per instrument and\n"
        "found by the manufacturer and serial number that the instrument gives\n"
        "in its identification. 'list' prints one line per set: its name, the\n"
        "manufacturer, the serial and the number of features. 'show' prints the\n"
        "set as its file holds it. 'remove' deletes it. A set is named by the\n"
        "name that 'list' prints (any case), or by manufacturer and serial.\n"
        "'add FILE' takes a set in the form that 'show' prints (from another\n"
        "computer, or one of the simulator's in sim/feature-sets), replacing a\n"
        "set of the same instrument; a file that is not such a set is refused.");
    command.add_option("ACTION", given->action, "list, show, remove or add")
        ->required()
        ->check(OneOf({"list", "show", "remove", "add"}).description(""))
        ->type_name("");
    command.add_option("NAME", given->name.emplace_back(),
                       "the set's name as 'list' prints it, or the manufacturer when SERIAL follows; for add, the FILE")
        ->type_name("");
    command.add_option("SERIAL", given->name.emplace_back(), "the serial number, after the manufacturer")
        ->type_name("");
    AddStoreOption(command, given->folder);
    command.footer("Examples:\n"
                   "  halvex store list\n"
                   "  halvex store show ALPHA-XY12\n"
                   "  halvex store remove \"Alpha Beta\" Xy12-34\n"
                   "  halvex store add ALPHA-XY12.json\n\n" +
                   ExitStatusText("no such set, or the store folder is unusable"));
    return [given] {
        StoreArguments arguments = *given;
        while (!arguments.name.empty() && arguments.name.back().empty())
            arguments.name.pop_back();
        return RunStore(arguments);
    };
}

const CommandRegistration registration({"store", "list, show, remove or add the stored feature sets of SCPI analyzers",
                                        &Setup});

} // namespace
} // namespace halvex
