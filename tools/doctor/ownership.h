// Who owns the items that the server would support, as far as the owners on the bus show.
#pragma once

#include <string>
#include <vector>

#include "common/json.h"
#include "doctor/diagnosis.h"
#include "ominspect/client/types.h"

namespace ominspect::doctor {

// The items as the client library has them: each name once, and none for an item whose name fell back.
client::Catalogue CatalogueOf(const std::vector<tagKivoOmInspectionItem>& items);

// Asks the processes on the bus; the server need not be there.
Result<client::Inventory> FindOwners(const Diagnosis& diagnosis);

// One line per item, each with its line end.
std::string OwnershipText(const client::Inventory& inventory);

// One object: the items with their owners and the processes that did not answer, or the error.
json::Value OwnershipJson(const Result<client::Inventory>& inventory);

}  // namespace ominspect::doctor
