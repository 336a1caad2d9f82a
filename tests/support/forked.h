// Part of a test in a child process of its own, for what would change the test program for good.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace support {

/// Runs `body` in a forked child and returns the lines that it returned; a child that ends in another way fails the
/// test. Expectations belong outside: those of the child are lost with it.
std::vector<std::string> InForkedChild(const std::function<std::vector<std::string>()>& body);

/// Gives up root's rights for good; does nothing in a process that has none.
void BecomeNobody();

/// The same, after the folder has become the new user's own. For a temporary one.
void BecomeNobodyWith(const std::filesystem::path& folder);

}  // namespace support
