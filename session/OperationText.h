#pragma once

#include <VelOsgDBBrx/EditSession.h>
#include <VelOsgDBBrx/PointSelection.h>

#include <string>

/// Operations as journals keep them, JSON as scripts have it.
namespace OperationText {

/// An operation on selected points: "cull" or "uncull".
std::string of(const std::string& op, const VelOsgDBBrx::PointSelection& selection);

std::string classify(const VelOsgDBBrx::PointSelection& selection, const VelOsgDBBrx::Classification& change);

std::string reset();
std::string dropUnsaved();

/// What people call the operation of a step, such as "hide"; of one that nobody here made its name in
/// scripts.
std::string nameOf(const std::string& operation);

} // namespace OperationText
