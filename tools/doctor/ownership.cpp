// Names are escaped in both forms, as in the rest of a diagnosis.
#include "doctor/ownership.h"

#include <chrono>
#include <cstdint>
#include <set>
#include <utility>

#include "common/client_answers.h"
#include "common/text.h"
#include "ominspect/client/session.h"

namespace ominspect::doctor {

client::Catalogue CatalogueOf(const std::vector<tagKivoOmInspectionItem>& items) {
    client::Catalogue catalogue{{}, static_cast<std::uint32_t>(items.size())};
    std::set<std::string> seen{""};
    for (const tagKivoOmInspectionItem& item : items) {
        std::string name = static_cast<const char*>(item.name);
        if (seen.insert(name).second) {
            catalogue.items.push_back({std::move(name), static_cast<const char*>(item.level), IsSynchronous(item)});
        }
    }
    return catalogue;
}

Result<client::Inventory> FindOwners(const Diagnosis& diagnosis) {
    constexpr std::chrono::seconds kLimit{10};
    const auto session = client::Session::Open();
    if (!session) {
        return session.Failure();
    }
    return (*session)->OwnersOf(CatalogueOf(diagnosis.items), kLimit);
}

std::string OwnershipText(const client::Inventory& inventory) {
    std::string out;
    for (const client::Item& item : inventory.items) {
        out += "item \"" + text::Escaped(item.name) + "\": ";
        out += item.owners.empty() ? "no process owns it" : "owned by " + OwnerNames(item.owners);
        out += item.configuration ? "\n" : ", not configured\n";
    }
    return out;
}

json::Value OwnershipJson(const Result<client::Inventory>& inventory) {
    auto document = json::Value::Object();
    if (!inventory) {
        document.Put("error", ErrorJson(inventory.Failure()));
        return document;
    }
    auto items = json::Value::Array();
    for (const client::Item& item : inventory->items) {
        auto one = json::Value::Object();
        one.Text("item", text::Escaped(item.name)).Flag("isConfigured", item.configuration.has_value());
        items.Add(std::move(one.Put("owners", OwnersJson(item.owners))));
    }
    auto silent = json::Value::Array();
    for (const std::string& process : inventory->silent) {
        silent.AddText(text::Escaped(process));
    }
    document.Put("items", std::move(items)).Put("silent", std::move(silent));
    return document;
}

}  // namespace ominspect::doctor
