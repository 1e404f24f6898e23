#pragma once

#include <VelOsgDBBrx/CellData.h>
