#pragma once

// In pixels; x to the right, y down.

struct Point {
    int x = 0;
    int y = 0;
};

struct Size {
    int width = 0;
    int height = 0;
};
