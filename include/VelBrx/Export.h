#pragma once

/// Marks what the library vel_octree_brx exports; everything else in it is hidden.
#define VEL_BRX_EXPORT __attribute__((visibility("default")))
