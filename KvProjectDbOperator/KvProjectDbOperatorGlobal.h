// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

#if defined(KVPROJECTDBOPERATOR_LIBRARY)
#define KVPROJECTDBOPERATOR_EXPORT Q_DECL_EXPORT
#else
#define KVPROJECTDBOPERATOR_EXPORT Q_DECL_IMPORT
#endif
