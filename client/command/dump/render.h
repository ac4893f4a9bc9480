// A frame as people read it: as annotated bytes, as a tree, as XML, as JSON.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <nox/nox.h>

#include "client/command/dump/catalogue.h"
#include "client/command/dump/frames.h"

namespace nox::command {

enum class Rendering { Hex, Tree, Xml, Json };

std::optional<Rendering> parseRendering(std::string_view name);

struct RenderOptions {
  bool showPasswords = false;   // else "********" stands for them
  std::size_t mostBytes = 256;  // of a text or blob in hex and tree; JSON and XML show all
};

/// The frame as text, with a line feed at its end. A frame that cannot be read is shown as bytes as
/// far as they follow the format, with what is wrong. Never throws for what the frame holds.
std::string render(const CapturedFrame& frame, Rendering rendering, CatalogueFactory& factory,
                   const RenderOptions& options = {});

/// The line above the frames of a stream that is called `origin`. JSON has none: it stays a message
/// per line, so that encode reads it.
std::string renderOrigin(const std::string& origin, Rendering rendering);

}  // namespace nox::command
