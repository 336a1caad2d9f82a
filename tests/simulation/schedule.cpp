// Only the choices that are not the tamest stand in the file: place and value, one pair a line.
#include "schedule.h"

#include <algorithm>
#include <cctype>
#include <fstream>

namespace sim {

namespace {

// What went wrong, without the numbers and names that differ from run to run.
std::string WayOf(const Outcome& outcome) {
    std::string way;
    for (const char letter : std::string(outcome.text)) {
        if (letter == '"' || letter == '[' || letter == '(') {
            break;
        }
        if (std::isdigit(static_cast<unsigned char>(letter)) == 0) {
            way += letter;
        }
    }
    const size_t label = way.find(": ");
    return label == std::string::npos ? way : way.substr(label);
}

void Trim(Schedule& schedule) {
    while (!schedule.empty() && schedule.back() == 0) {
        schedule.pop_back();
    }
}

// Tries changes of a schedule, and keeps those after which the run still goes wrong.
class Search {
public:
    Search(Runner& runner, Schedule schedule, size_t runs)
        : runner_(runner), schedule_(std::move(schedule)), left_(runs) {
        way_ = WayOf(runner_.RunOne(Choices(schedule_)));
    }

    bool Try(const Schedule& changed) {
        if (left_ == 0) {
            return false;
        }
        --left_;
        const Outcome& outcome = runner_.RunOne(Choices(changed));
        if (!outcome.violated || WayOf(outcome) != way_) {
            return false;
        }
        schedule_ = changed;
        schedule_.resize(std::min<size_t>(schedule_.size(), outcome.choices));
        Trim(schedule_);
        return true;
    }

    bool Pass(size_t chunk) {
        bool changed = false;
        for (size_t first = 0; first < schedule_.size() && left_ != 0; first += chunk) {
            Schedule tamer = schedule_;
            const auto begin = tamer.begin() + static_cast<std::ptrdiff_t>(first);
            const auto end = tamer.begin() + static_cast<std::ptrdiff_t>(std::min(first + chunk, tamer.size()));
            if (std::any_of(begin, end, [](uint32_t value) { return value != 0; })) {
                std::fill(begin, end, 0);
                changed = Try(tamer) || changed;
            }
        }
        return changed;
    }

    Schedule Take() { return std::move(schedule_); }
    size_t Size() const { return schedule_.size(); }

private:
    Runner& runner_;
    Schedule schedule_;
    size_t left_;
    std::string way_;
};

}  // namespace

bool ReadSchedule(const std::string& path, Schedule& schedule) {
    std::ifstream file(path);
    std::string line;
    if (!std::getline(file, line) || !line.starts_with("# schedule")) {
        return false;
    }
    size_t place = 0;
    uint32_t value = 0;
    while (file >> place >> value) {
        if (place >= schedule.size()) {
            schedule.resize(place + 1);
        }
        schedule[place] = value;
    }
    return file.eof();
}

bool WriteSchedule(const std::string& path, const Schedule& schedule, const std::string& comment) {
    std::ofstream file(path);
    file << "# schedule: " << comment << '\n';
    for (size_t place = 0; place < schedule.size(); ++place) {
        if (schedule[place] != 0) {
            file << place << ' ' << schedule[place] << '\n';
        }
    }
    return static_cast<bool>(file.flush());
}

Schedule ScheduleOf(const Outcome& outcome) {
    const size_t count = std::min<size_t>(outcome.choices, outcome.made.size());
    Schedule schedule(outcome.made.begin(), outcome.made.begin() + static_cast<std::ptrdiff_t>(count));
    Trim(schedule);
    return schedule;
}

size_t CountChoices(const Schedule& schedule) {
    return static_cast<size_t>(std::ranges::count_if(schedule, [](uint32_t value) { return value != 0; }));
}

Schedule Minimise(Runner& runner, Schedule schedule, size_t runs) {
    Search search(runner, std::move(schedule), runs);
    for (size_t chunk = std::max<size_t>(1, search.Size() / 2); chunk != 0; chunk /= 2) {
        search.Pass(chunk);
    }
    while (search.Pass(1)) {
    }
    return search.Take();
}

}  // namespace sim
