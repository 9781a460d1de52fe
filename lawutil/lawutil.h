#pragma once
// The whole public interface of the law library and of the base library it rests on.

#include <qem/qem.h>

#include <lawutil/compile.h>
#include <lawutil/law_base.h>
#include <lawutil/deform_law.h>
#include <lawutil/law_data.h>
#include <lawutil/law_data_geom.h>
#include <lawutil/integrate.h>
#include <lawutil/integrate_de.h>
#include <lawutil/law_errors.h>
#include <lawutil/law_kinds.h>
#include <lawutil/law_save.h>
#include <lawutil/law_thread_ctx.h>
#include <lawutil/law_unary.h>
#include <lawutil/law_unary_data.h>
#include <lawutil/law_util.h>
#include <lawutil/main_law.h>
#include <lawutil/open_set.h>
#include <lawutil/polylaw.h>
#include <lawutil/root.h>
#include <lawutil/root_cheb.h>
#include <lawutil/simplfy.h>
#include <lawutil/spline_law.h>
#include <lawutil/sw_common.h>
#include <lawutil/sw_curve.h>
#include <lawutil/sw_curve_law.h>
#include <lawutil/sw_curve_util.h>
#include <lawutil/sw_surface.h>
#include <lawutil/sw_surface_util.h>
#include <lawutil/sweep_data_law.h>
#include <lawutil/sweep_law.h>
