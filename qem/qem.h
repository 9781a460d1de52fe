// Umbrella header: the whole qem base library.
#pragma once

#include "qem/d3_ostream.h"
#include "qem/errors.h"
#include "qem/geometry.h"
#include "qem/heap.h"
#include "qem/optional.h"
#include "qem/options.h"
#include "qem/polyroots.h"
#include "qem/qem_export.h"
#include "qem/qem_printf.h"
#include "qem/threads.h"
#include "qem/tolerance.h"
#include "qem/version.h"
