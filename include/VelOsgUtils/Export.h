#pragma once

/// Marks what the library vel_osg_utils exports; everything else in it is hidden.
#define VEL_OSG_UTILS_EXPORT __attribute__((visibility("default")))
