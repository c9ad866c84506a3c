// Who includes whom, as the #include lines say it, held against the page that
// says who may.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;

using Arrows = std::map<std::string, std::set<std::string>>;

const fs::path source_directory = ZELK_SOURCE_DIRECTORY;

std::vector<std::string> lines_of(const fs::path& file) {
  std::ifstream in(file);
  EXPECT_TRUE(in) << file;
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

// The rows "room -> target target ..." of the page: rooms, or single files
// without their ending, and what each may include besides itself.
Arrows allowed_arrows() {
  Arrows arrows;
  for (const std::string& line : lines_of(source_directory / "docs/architecture.md")) {
    std::istringstream words(line);
    std::string room;
    std::string arrow;
    if (words >> room >> arrow && arrow == "->") {
      std::set<std::string>& targets = arrows[room];
      for (std::string target; words >> target;) {
        targets.insert(target);
      }
    }
  }
  return arrows;
}

std::string without_ending(const std::string& file) {
  return file.substr(0, file.rfind('.'));
}

// The row that a file belongs to: its own, or else its folder's.
std::optional<std::string> room_of(const std::string& file, const Arrows& arrows) {
  if (const std::string unit = without_ending(file); arrows.contains(unit)) {
    return unit;
  }
  const std::string folder = fs::path(file).parent_path().string();
  return arrows.contains(folder) ? std::optional(folder) : std::nullopt;
}

struct Include {
  std::string from;
  std::string to;
};

// Every line of the product that includes a file of the project.
std::vector<Include> includes() {
  std::vector<Include> found;
  for (const char* top : {"timing", "smoke_test", "simulator", "packaging"}) {
    for (const auto& entry : fs::recursive_directory_iterator(source_directory / top)) {
      const std::string ending = entry.path().extension().string();
      if (ending != ".cpp" && ending != ".hpp" && ending != ".h") {
        continue;
      }
      const std::string from = fs::relative(entry.path(), source_directory).string();
      constexpr std::string_view opening = "#include \"";
      for (const std::string& line : lines_of(entry.path())) {
        if (line.starts_with(opening)) {
          found.push_back({from, line.substr(opening.size(), line.rfind('"') - opening.size())});
        }
      }
    }
  }
  return found;
}

// The first cycle found, as the names along it; empty when there is none.
std::vector<std::string> cycle_in(const Arrows& arrows) {
  std::set<std::string> done;
  std::vector<std::string> path;
  const auto visit = [&](const auto& self, const std::string& node) -> bool {
    if (const auto again = std::ranges::find(path, node); again != path.end()) {
      path.erase(path.begin(), again);
      return true;
    }
    if (done.contains(node)) {
      return false;
    }
    path.push_back(node);
    if (const auto found = arrows.find(node); found != arrows.end()) {
      for (const std::string& target : found->second) {
        if (self(self, target)) {
          return true;
        }
      }
    }
    path.pop_back();
    done.insert(node);
    return false;
  };
  for (const auto& [node, targets] : arrows) {
    if (visit(visit, node)) {
      return path;
    }
  }
  return {};
}

TEST(Includes, EveryProductFileBelongsToARoomOfThePage) {
  const Arrows arrows = allowed_arrows();
  std::set<std::string> homeless;
  for (const Include& include : includes()) {
    for (const std::string& file : {include.from, include.to}) {
      if (!room_of(file, arrows)) {
        homeless.insert(file);
      }
    }
  }
  EXPECT_THAT(homeless, IsEmpty());
}

TEST(Includes, FollowTheArrowsOfThePage) {
  const Arrows arrows = allowed_arrows();
  std::vector<std::string> violations;
  for (const auto& [from, to] : includes()) {
    const std::string room = room_of(from, arrows).value_or("");
    const std::string target = room_of(to, arrows).value_or("");
    const auto allowed = arrows.find(room);
    if (room != target && (allowed == arrows.end() ||
                           (!allowed->second.contains(target) && !allowed->second.contains(to)))) {
      violations.push_back(from + " includes " + to);
    }
  }
  EXPECT_THAT(violations, IsEmpty());
}

TEST(Includes, ThePageNamesNoArrowThatNoFileFollows) {
  const Arrows arrows = allowed_arrows();
  Arrows followed;
  for (const auto& [from, to] : includes()) {
    const std::string room = room_of(from, arrows).value_or("");
    followed[room].insert({room_of(to, arrows).value_or(""), to});
  }
  std::vector<std::string> idle;
  for (const auto& [room, targets] : arrows) {
    for (const std::string& target : targets) {
      if (!followed[room].contains(target)) {
        idle.push_back(room + " -> " + target);
      }
    }
  }
  EXPECT_THAT(idle, IsEmpty());
}

TEST(Includes, RunOneWayBetweenTheRooms) {
  EXPECT_THAT(cycle_in(allowed_arrows()), IsEmpty());
}

// A header and its source count as one.
TEST(Includes, RunOneWayBetweenFiles) {
  Arrows files;
  for (const auto& [from, to] : includes()) {
    if (without_ending(from) != without_ending(to)) {
      files[without_ending(from)].insert(without_ending(to));
    }
  }
  EXPECT_THAT(cycle_in(files), IsEmpty());
}

TEST(Includes, ACycleIsFound) {
  EXPECT_THAT(cycle_in({{"a", {"b"}}, {"b", {"c"}}, {"c", {"b"}}}),
              testing::UnorderedElementsAre("b", "c"));
  EXPECT_THAT(cycle_in({{"a", {"b", "c"}}, {"b", {"c"}}}), IsEmpty());
}

}  // namespace
