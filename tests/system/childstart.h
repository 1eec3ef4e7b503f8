#pragma once

#include <string_view>

#include "system/system.h"

/// With it begins the first argument of a child; its role's name follows. The others are the role's.
constexpr std::string_view RoleArgument = "--role=";

/// In a child: it does not outlive its time.
void EndWhenForgotten();
