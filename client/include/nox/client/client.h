// The client library, all of it.
#pragma once

#include "nox/client/batch.h"
#include "nox/client/connection.h"
#include "nox/client/conversation.h"
#include "nox/client/error.h"
#include "nox/client/export.h"
#include "nox/client/file.h"
#include "nox/client/listing.h"
#include "nox/client/observer.h"
#include "nox/client/options.h"
#include "nox/client/pool.h"
#include "nox/client/record.h"
#include "nox/client/select_list.h"
#include "nox/client/statement.h"
#include "nox/client/transaction.h"
#include "nox/client/value.h"
