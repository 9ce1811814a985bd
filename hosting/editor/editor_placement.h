#pragma once

// Where a window of `editorSize` starts on one axis of a screen span so that it sits centred:
// the editor's half size is taken in whole units before the subtraction. Both platforms.
constexpr double centredOrigin(double screenOrigin, double screenSize, int editorSize) {
    return screenOrigin + screenSize * 0.5 - editorSize / 2;
}
