-- SECTION.REPORT(section, packages, kib): counts the packages of a section and adds up their sizes.
local section = args[1]
local packages, kib = 0, 0
local file = nox.open("PACKAGES")
for id in file:select() do
  local record = file:read(id, 0)
  if record and nox.ext(record, 3) == section then
    packages = packages + 1
    kib = kib + (math.tointeger(nox.ext(record, 5)) or 0)
  end
end
args[2] = packages
args[3] = kib
