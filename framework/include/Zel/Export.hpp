#pragma once

// Types that cross the plug-in boundary (exceptions the host catches,
// interfaces it dynamic_casts to) keep default visibility even when a
// consumer builds with -fvisibility=hidden.
#define ZEL_API __attribute__((visibility("default")))
