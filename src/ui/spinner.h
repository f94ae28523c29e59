#pragma once
// A small indeterminate progress indicator: an arc that turns while running and is hidden
// otherwise.

#include <QTimer>
#include <QWidget>

namespace murmela::ui {

class Spinner final : public QWidget {
public:
    explicit Spinner(QWidget* parent = nullptr);

    void setRunning(bool running);
    bool isRunning() const { return timer_.isActive(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QTimer timer_;
    int angle_ = 0;
};

}  // namespace murmela::ui
