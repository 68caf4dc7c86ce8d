// Umbrella header: every interface and value type of the imaging module.
#pragma once

#include "qel/collections.h"
#include "qel/components.h"
#include "qel/iid.h"
#include "qel/image.h"
#include "qel/types.h"
#include "qel/unknown.h"
