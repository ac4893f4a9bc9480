// dump and encode: the wire, without a server.
#include <array>
#include <cstdio>

#include "client/command/context.h"
#include "client/command/dump/json.h"
#include "client/command/dump/render.h"

namespace nox::command {

int runDump(Context& context, const Arguments& arguments) {
  const auto rendering = parseRendering(arguments.get("--as", "tree"));
  RenderOptions options;
  options.showPasswords = arguments.has("--passwords");
  options.mostBytes = numberOf(arguments.get("--most", "256"), "--most", 1u << 30);
  CatalogueFactory factory;
  const CapturedFrames found = framesOf(readAll(arguments.get("PATH")));
  Output& out = context.out();
  std::string stream;
  for (const CapturedFrame& frame : found.frames) {
    context.checkInterrupt();
    if (frame.origin != stream) out.write(renderOrigin(frame.origin, *rendering));
    stream = frame.origin;
    out.write(render(frame, *rendering, factory, options));
  }
  out.flush();
  if (found.problem.empty()) return kDone;
  context.say(found.problem);
  return kRefused;
}

int runEncode(Context& context, const Arguments& arguments) {
  const std::string text = readAll(arguments.get("PATH"));
  const bool hex = arguments.has("--hex");
  CatalogueFactory factory;
  Output& out = context.out();
  std::size_t number = 0;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string_view line = std::string_view(text).substr(begin, end - begin);
    begin = end + 1;
    ++number;
    if (line.find_first_not_of(" \t\r") == std::string_view::npos) continue;
    std::string frame;
    try {
      frame = frameOfJson(line, factory);
    } catch (const std::runtime_error& error) {
      out.flush();
      throw Refused("line " + std::to_string(number) + ": " + error.what());
    }
    if (!hex) {
      out.write(frame);
      continue;
    }
    std::string digits;
    for (const char c : frame) {
      std::array<char, 4> pair{};
      std::snprintf(pair.data(), pair.size(), "%02X ", static_cast<unsigned int>(c & 0xFF));
      digits += pair.data();
    }
    digits.back() = '\n';
    out.write(digits);
  }
  out.flush();
  return kDone;
}

}  // namespace nox::command
