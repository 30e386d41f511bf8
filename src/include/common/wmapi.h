#pragma once

// Marks what libwmLib exports. Everything else in the tree is built with hidden visibility.
#define WMLIB_API __attribute__((visibility("default")))
