/* libcorvel: every public header. */
#ifndef CORVEL_H
#define CORVEL_H

#include "corvel/arr.h"
#include "corvel/bns.h"
#include "corvel/checksum.h"
#include "corvel/codec.h"
#include "corvel/elog.h"
#include "corvel/files.h"
#include "corvel/grave.h"
#include "corvel/gzopen.h"
#include "corvel/net.h"
#include "corvel/pf.h"
#include "corvel/port.h"
#include "corvel/ring.h"
#include "corvel/tbl.h"
#include "corvel/text.h"
#include "corvel/time.h"
#include "corvel/units.h"

#endif
