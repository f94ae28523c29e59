#pragma once
// A padded box outlined by a thin rounded rectangle in the separator colour, around one child.

#include <QWidget>

namespace murmela::ui {

class OutlinedFrame final : public QWidget {
public:
    // Takes ownership of `content`, padded by `padding` pixels on every side.
    OutlinedFrame(QWidget* content, int padding, QWidget* parent = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;
};

}  // namespace murmela::ui
