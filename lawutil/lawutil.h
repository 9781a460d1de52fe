#pragma once
// The whole public interface of the law library and of the base library it rests on.

#include <qem/qem.h>

#include <lawutil/compile.h>
#include <lawutil/law_base.h>
#include <lawutil/law_data.h>
#include <lawutil/law_errors.h>
#include <lawutil/law_kinds.h>
#include <lawutil/law_thread_ctx.h>
#include <lawutil/law_unary.h>
#include <lawutil/law_unary_data.h>
#include <lawutil/law_util.h>
#include <lawutil/main_law.h>
#include <lawutil/simplfy.h>
