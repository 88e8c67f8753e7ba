#include <vector>

#include "fuzz_target.hpp"
#include "io/exact_files.hpp"

namespace kestrum_fuzz {
namespace {

struct Table {
  kestrum::GslibTable table;

  int Read(std::FILE* stream) { return static_cast<int>(kestrum::ReadGslibTable(stream, &table)); }
  std::size_t rows() const { return table.names.size() == 0 ? 0 : table.values.size() / table.names.size(); }
  int Write(std::FILE* stream) {
    const std::size_t width = table.names.size();
    std::vector<std::vector<double>> columns(width);
    std::vector<const char*> names;
    std::vector<const double*> data;
    for (std::size_t column = 0; column < width; ++column) {
      for (std::size_t row = 0; row < rows(); ++row) columns[column].push_back(table.values[row * width + column]);
      names.push_back(table.names[column].text);
      data.push_back(columns[column].data());
    }
    return kestrum::WriteGslibTable({static_cast<int>(width), rows(), names.data(), data.data()}, stream);
  }
  bool Same(const Table& other) const {
    if (table.names.size() != other.table.names.size() || table.values.size() != other.table.values.size())
      return false;
    for (std::size_t column = 0; column < table.names.size(); ++column) {
      if (std::strcmp(table.names[column].text, other.table.names[column].text) != 0) return false;
    }
    return SameNumbers(table.values.data(), other.table.values.data(), table.values.size());
  }
  // A NaN is written as the missing value.
  bool Survives() const {
    for (std::size_t i = 0; i < table.values.size(); ++i) {
      if (std::isnan(table.values[i])) return false;
    }
    return true;
  }
};

}  // namespace
}  // namespace kestrum_fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrum_fuzz::TestReader<kestrum_fuzz::Table>(kestrum_fuzz::AsText(data, size));
  return 0;
}
