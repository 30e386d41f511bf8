#pragma once

// Marks what libwmLib exports. Everything else in the tree is built with hidden visibility.
//
// Only wmLib has such names, since the others are reached through the exports of a loadable
// component, which are looked up by name.
#define WMLIB_API __attribute__((visibility("default")))
