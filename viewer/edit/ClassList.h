#pragma once

#include "terminal/ClassList.h"
