// The command collect as people run it, in a folder of the test's own.
#pragma once

#include <gtest/gtest.h>
#include <openssl/sha.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "common/json.h"
#include "support/archive_reader.h"
#include "support/child.h"
#include "support/eventually.h"
#include "support/temp_folder.h"

namespace support {

namespace json = ominspect::json;
using Lines = std::vector<std::string>;

inline std::string TextAt(json::View object, const char* name) {
    return object[name].Text().value_or("(none)");
}

inline std::uint64_t NumberAt(json::View object, const char* name) {
    return static_cast<std::uint64_t>(object[name].Number().value_or(-1));
}

inline std::string Sha256(const std::string& data) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> sum{};
    (void)SHA256(reinterpret_cast<const unsigned char*>(data.data()), data.size(), sum.data());
    std::string hex;
    for (const unsigned byte : sum) {
        hex += "0123456789abcdef"[byte / 16];
        hex += "0123456789abcdef"[byte % 16];
    }
    return hex;
}

// Bytes that do not compress.
inline std::string Noise(std::size_t size) {
    std::string noise;
    for (unsigned number = 1; noise.size() < size;) {
        number = number * 1664525U + 1013904223U;
        noise += static_cast<char>(number >> 24U);
    }
    return noise;
}

class CollectProgram : public testing::Test {
protected:
    // Its output goes to the files "out" and "err".
    static Child Start(const Lines& arguments, const std::string& before = "") {
        Lines command{"/bin/sh", "-c", before + R"( exec "$0" "$@" >out 2>err)", PROGRAM_CTL, "collect"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return Child(command);
    }

    static int Run(const Lines& arguments, const std::string& before = "") {
        return Start(arguments, before).Wait().value_or(-1);
    }

    // The clock of the file system ticks a few hundred times a second: until what is written has another time.
    static void AwaitNextTick(const std::string& name) {
        const auto changed = [](const std::string& file) {
            struct stat status {};
            EXPECT_EQ(stat(file.c_str(), &status), 0);
            return std::pair(status.st_ctim.tv_sec, status.st_ctim.tv_nsec);
        };
        EXPECT_TRUE(Eventually([&] {
            WriteFile("tick", "");
            return changed("tick") != changed(name);
        }));
    }

    static json::Value Manifest(const std::vector<Member>& members, const std::string& name) {
        const Member member = MemberOf(members, name + "/manifest.json");
        auto manifest = json::Value::Parse(member.content);
        EXPECT_TRUE(manifest) << member.content;
        return manifest ? std::move(*manifest) : json::Value::Object();
    }

    // Whether the manifest names exactly the files of the package, with their sizes and sums.
    static void CheckSums(const std::vector<Member>& members, json::View manifest, const std::string& name) {
        std::map<std::string, std::string> sums;
        for (const auto& [none, file] : manifest["files"].Members()) {
            sums[TextAt(file, "path")] = TextAt(file, "sha256") + ' ' + std::to_string(NumberAt(file, "bytes"));
        }
        std::map<std::string, std::string> found;
        const std::string folder = name + "/files/";
        for (const Member& member : members) {
            if (member.type != '-' || !member.name.starts_with(folder)) {
                continue;
            }
            found[member.name.substr(folder.size())] =
                Sha256(member.content) + ' ' + std::to_string(member.content.size());
        }
        EXPECT_EQ(sums, found);
    }

    // "source below the work folder: outcome", in order
    Lines Outcomes(json::View manifest) const {
        Lines lines;
        for (const auto& [none, entry] : manifest["entries"].Members()) {
            lines.push_back(TextAt(entry, "source").substr(work_.Path().string().size() + 1) + ": " +
                            TextAt(entry, "outcome"));
        }
        return lines;
    }

    // What is in the work folder, sorted.
    Lines Names() const {
        Lines names;
        for (const auto& entry : std::filesystem::directory_iterator(work_.Path())) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    static void WriteMany(const std::string& folder, int count) {
        for (int i = 0; i < count; ++i) {
            WriteFile(folder + '/' + std::to_string(i), "content " + std::to_string(i));
        }
    }

    const WorkingFolder work_;
};

// Shell code. The address sanitizer does not mind a library before its own then.
inline std::string Preloaded(const std::string& library) {
    return "ASAN_OPTIONS=verify_asan_link_order=0:$ASAN_OPTIONS LD_PRELOAD=" + library +
           "; export ASAN_OPTIONS LD_PRELOAD;";
}

inline const std::string kSlowDisk = Preloaded(SLOW_DISK);

inline bool Holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace support
