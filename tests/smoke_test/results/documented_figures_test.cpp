// docs/production.md has a row for each figure, as the figure's own row in the code
// says, in the same order and no row besides.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "smoke_test/results/figures.hpp"

namespace {

std::string name_on_the_page(const Figure& figure) {
  std::string name(figure.name);
  if (figure.shape == Figure::Shape::channel_name) {
    name.replace(name.find('%'), 1, "N");
  }
  return name;
}

std::string row_of(const Figure& figure) {
  const bool is_single = figure.shape == Figure::Shape::single;
  std::string row = "|";
  for (const std::string& cell : {"`" + name_on_the_page(figure) + "`", std::string(figure.unit),
                                  std::string(is_single ? "one" : "per channel"),
                                  std::string(figure.meaning), std::string(figure.absent)}) {
    row += " " + cell + " |";
  }
  return row;
}

std::vector<std::string> rows_of_the_page() {
  std::ifstream file(ZELK_PRODUCTION_PAGE);
  EXPECT_TRUE(file.is_open());
  std::vector<std::string> rows;
  bool in_table = false;
  for (std::string line; std::getline(file, line);) {
    in_table = line.starts_with("| Figure |") || (in_table && line.starts_with('|'));
    if (in_table && line.starts_with("| `")) {
      rows.push_back(line);
    }
  }
  return rows;
}

TEST(DocumentedFigures, AreThoseOfTheCode) {
  std::vector<std::string> rows;
  for (const Figure& figure : figures()) {
    rows.push_back(row_of(figure));
  }
  EXPECT_THAT(rows_of_the_page(), testing::ElementsAreArray(rows));
}

}  // namespace
