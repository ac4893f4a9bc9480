# Turns a package database (blocks of "Field: text" lines, as in /var/lib/dpkg/status) into records
# for `nox load`: one JSON line per installed package.
#
#   attribute  1 VERSION   2 ARCH   3 SECTION   4 PRIORITY   5 SIZE (KiB)   6 MAINTAINER   7 SUMMARY
#              8 DEPENDS: a value for each dependency, its alternatives as subvalues

function text(s) {
  gsub(/\\/, "\\\\", s)
  gsub(/"/, "\\\"", s)
  gsub(/\t/, "\\t", s)
  gsub(/[\001-\010\013-\037]/, "", s)
  return "\"" s "\""
}

# "a (>= 1), b | c" as ["a (>= 1)", ["b", "c"]]
function dependencies(s, list, alternatives, n, m, i, k, json, value) {
  n = split(s, list, /, */)
  json = ""
  for (i = 1; i <= n; i++) {
    m = split(list[i], alternatives, / *\| */)
    value = ""
    for (k = 1; k <= m; k++) value = value (k > 1 ? "," : "") text(alternatives[k])
    json = json (i > 1 ? "," : "") (m > 1 ? "[" value "]" : value)
  }
  return "[" json "]"
}

function flush_block() {
  if (field["Package"] != "" && field["Status"] ~ / installed$/) {
    # Packages of a second architecture have the same name.
    id = field["Package"]
    if (id in seen) id = id ":" field["Architecture"]
    seen[id] = 1
    printf "{\"id\":%s,\"record\":[%s,%s,%s,%s,%s,%s,%s,%s]}\n", text(id),
      text(field["Version"]), text(field["Architecture"]), text(field["Section"]),
      text(field["Priority"]), text(field["Installed-Size"]), text(field["Maintainer"]),
      text(field["Description"]), dependencies(field["Depends"])
  }
  split("", field)
}

/^$/ { flush_block(); next }
/^[ \t]/ { next }
{
  colon = index($0, ":")
  name = substr($0, 1, colon - 1)
  value = substr($0, colon + 1)
  sub(/^ +/, "", value)
  field[name] = value
}
END { flush_block() }
