// The libraries of the five families: `zp`, `cd`, `sv40`, `lm70`, `cd90`.
#pragma once

#include "devices/libs/cd.h"
#include "devices/libs/cd90.h"
#include "devices/libs/lm70.h"
#include "devices/libs/sv40.h"
#include "devices/libs/zp.h"
