// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "exceptions/KLException.h"
#include "platform/Exception.h"
#include "values/Data.h"

// Operations that the category KLException adds to every exception of the platform. Safe from any
// thread, as far as the exception itself is used by one.
namespace hoist {

// A handle to the same exception when it is a KLException, else nothing.
std::optional<KLException> asKLException(const Exception& exception);
// The same when it also is soft.
std::optional<KLException> asSoftException(const Exception& exception);

// The exception as a keyed archive: class, name, reason and user-info. Of the objects in the
// user-info exceptions and errors are archived, any other as its description.
Data dataForException(const Exception& exception);

// The exception that the archive holds; its user-info is readable as before, the detail setters
// change nothing on it. None for no bytes, and for an archive of something else, which is logged.
// The bytes may come from anybody: only exceptions, errors and property-list kinds are made. Raises
// hoist::Exception kInvalidArgumentException for bytes that are no keyed archive.
std::optional<Exception> exceptionFromData(const std::optional<Data>& data);

// Raises the exception; while failures persist, logs it and returns.
void raiseOrPersist(const Exception& exception);

// Whether failures persist, for the whole process: off until it is set.
bool failuresPersist();
void setFailuresPersist(bool persist);

}  // namespace hoist
