#pragma once

// Marks the two exports of a loadable component, which are found by name.
#define ZEL_COMPONENT_API __attribute__((visibility("default")))
