#pragma once
// What the user-interface tests share: the application set-up (see gui_test_main.cpp), the
// resources the build staged, palettes for both appearances, and finding widgets by name.

#include <gtest/gtest.h>

#include <QObject>
#include <QPalette>
#include <QString>
#include <filesystem>
#include <string>

namespace murmela::testing {

// build/<variant>/share/murmela, which MURMELA_RESOURCES points at in every GUI test.
std::filesystem::path stagedResourceDirectory();

// Whether the session bus is the test run's own (see gui_test_main.cpp); otherwise it is
// unreachable. Tests never talk to the desktop's real bus.
bool hasPrivateSessionBus();

// Palettes of a light and a dark appearance.
QPalette lightPalette();
QPalette darkPalette();

// Sets the application palette for as long as it lives, then puts the old one back.
class ApplicationPalette {
public:
    explicit ApplicationPalette(const QPalette& palette);
    ~ApplicationPalette();
    ApplicationPalette(const ApplicationPalette&) = delete;
    ApplicationPalette& operator=(const ApplicationPalette&) = delete;

private:
    QPalette previous_;
};

// The one descendant of `root` of type T with object name `name`; fails the test and returns
// null when there is none or more than one.
template <typename T>
T* findNamed(const QObject* root, const QString& name) {
    QList<T*> found = root->findChildren<T*>(name);
    if (found.size() != 1) {
        ADD_FAILURE() << found.size() << " widgets named \"" << name.toStdString() << "\"";
        return nullptr;
    }
    return found.front();
}

}  // namespace murmela::testing
