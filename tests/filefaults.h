#pragma once

#include "system/system.h"
