// Bus, rights, policy, server and owners: what is right about them, and what to do about the rest.
#pragma once

#include <string>
#include <vector>

#include "doctor/bus_facts.h"
#include "doctor/finding.h"
#include "doctor/person.h"

namespace ominspect::doctor {

// `policyAdvice`: what helps where the bus does not have the policy.
std::vector<Finding> JudgeBus(const BusFacts& facts, const Person& person, const std::string& policyAdvice);

// `version`: that of this program.
std::vector<Finding> JudgeServer(const BusFacts& facts, const std::string& version);

// `configured`: the items of the configuration file as it is now.
std::vector<Finding> JudgeItems(const BusFacts& facts, const client::Catalogue& configured);

}  // namespace ominspect::doctor
