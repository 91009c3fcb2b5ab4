// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "text/Label.h"

namespace zaffo::feed {

/// A page of text over the whole picture: a heading, and rows of two columns. Letters become
/// smaller where the rows would not fit. Thread: main.
class Panel final : public UIView {
  struct Private {};

 public:
  struct Row {
    std::string left, right;
    bool operator==(const Row&) const = default;
  };

  Panel(Private, Density density);
  [[nodiscard]] static std::shared_ptr<Panel> create(Density density);

  /// Labels whose text stays are not drawn again.
  void setRows(const std::string& heading, std::vector<Row> rows);
  [[nodiscard]] const std::vector<Row>& rows() const { return rows_; }

  void layoutSubviews() override;

 private:
  /// Sets the labels at a size of letters; returns how high all is.
  double arrange(double size);
  Label& label(std::size_t index);

  const Density density_;
  std::string heading_;
  std::vector<Row> rows_;
  std::vector<std::shared_ptr<Label>> labels_;
};

}  // namespace zaffo::feed
