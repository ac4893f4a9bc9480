# The headers under nox/: NOX_PUBLIC_HEADERS is what <nox/nox.h> includes and what is installed; the
# others serve the library's own sources.
set(NOX_INTERNAL_HEADERS
  nox/core/binary_format.h
  nox/core/copy_bytes.h
  nox/core/frame_stream.h
  nox/diag/file_loggers.h
  nox/encodings/reader_support.h
  nox/io/socket_options.h
  nox/io/socket_signals.h
  nox/protocol/remote/trace.h
  nox/text/conversion.h)

file(GLOB_RECURSE NOX_PUBLIC_HEADERS RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/nox/*.h)
list(REMOVE_ITEM NOX_PUBLIC_HEADERS ${NOX_INTERNAL_HEADERS})
