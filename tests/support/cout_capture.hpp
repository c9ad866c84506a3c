// Collects what is written to std::cout while the object exists, and leaves
// the stream's formatting and state as they were.
#pragma once

#include <ios>
#include <iostream>
#include <sstream>
#include <string>

namespace zelk::test_support {

class CoutCapture {
 public:
  CoutCapture() : former_format_(nullptr), former_buffer_(std::cout.rdbuf(text_.rdbuf())) {
    former_format_.copyfmt(std::cout);
  }
  ~CoutCapture() {
    std::cout.rdbuf(former_buffer_);
    std::cout.copyfmt(former_format_);
    std::cout.clear();
  }
  CoutCapture(const CoutCapture&) = delete;
  CoutCapture& operator=(const CoutCapture&) = delete;

  [[nodiscard]] std::string text() const { return text_.str(); }

 private:
  std::ostringstream text_;
  std::ios former_format_;
  std::streambuf* former_buffer_;
};

}  // namespace zelk::test_support
