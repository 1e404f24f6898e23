#pragma once

#include <VelOsgDBBrx/PointSelection.h>

#include <utility>

/// The ranges of attributes by their keys in a selection's text.
constexpr std::pair<const char*, VelOsgDBBrx::ValueRange VelOsgDBBrx::AttributeRanges::*> kAttributeKeys[] = {
    {"returns", &VelOsgDBBrx::AttributeRanges::returnNumber},
    {"numberOfReturns", &VelOsgDBBrx::AttributeRanges::numberOfReturns},
    {"intensity", &VelOsgDBBrx::AttributeRanges::intensity},
    {"height", &VelOsgDBBrx::AttributeRanges::height},
    {"source", &VelOsgDBBrx::AttributeRanges::source},
    {"gpsTime", &VelOsgDBBrx::AttributeRanges::gpsTime},
    {"scanAngle", &VelOsgDBBrx::AttributeRanges::scanAngle}};
