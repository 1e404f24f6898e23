#pragma once

/// Marks what the library vel_osgdb_brx exports; everything else in it is hidden.
#define VEL_OSGDB_BRX_EXPORT __attribute__((visibility("default")))
