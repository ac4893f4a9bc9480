#!/usr/bin/env python3
"""Writes the seeds of the fuzz targets into corpus/: a few small inputs each, of which the fuzzers
make more. Run it after a change; the files are kept in the tree."""

import pathlib
import struct
import zlib

CORPUS = pathlib.Path(__file__).parent / "corpus"


def seed(target, name, data):
    directory = CORPUS / target
    directory.mkdir(parents=True, exist_ok=True)
    (directory / name).write_bytes(data)


def integer(value):
    return b"I" + struct.pack(">i", value)


def string(text):
    return b"s" + struct.pack(">H", len(text)) + text + b";"


def blob(data):
    return b"jb" + struct.pack(">I", len(data)) + data + b";;"


NULL = b"L" + integer(1) + b";"


def obj(type_code, *fields, version=0):
    return b"L" + integer(type_code) + integer(version) + b"".join(fields) + b";"


def frame(body):
    return struct.pack(">I", len(body) + 2) + b"[" + body + b"]"


def deflate(data):
    raw = zlib.compressobj(9, zlib.DEFLATED, -15)
    return raw.compress(data) + raw.flush()


def gzip(data):
    footer = struct.pack("<II", zlib.crc32(data), len(data))
    return b"\x1f\x8b\x08\0\0\0\0\0\0\x03" + deflate(data) + footer


def frames():
    pair = obj(3, integer(5), string(b"ab"))
    everything = obj(16, integer(1), string(b"plain"), string(b"text"), blob(b"\0\xff"),
                     obj(8, integer(2)), NULL)
    seed("frames", "pair", frame(pair))
    seed("frames", "null", frame(NULL))
    seed("frames", "everything", frame(everything))
    seed("frames", "nulls", frame(obj(6, string(b"a"), blob(b"b"), pair, integer(1))))
    seed("frames", "nested", frame(obj(15, obj(15, obj(7, obj(8, integer(3)))))))
    seed("frames", "compressed", frame(b"GZIP" + gzip(everything)))
    seed("frames", "two", frame(pair) + frame(NULL))
    seed("frames", "http", b"GET /index HTTP/1.1\r\nContent-Length: 2\r\n\r\nok")
    seed("frames", "echo", frame(obj(504, blob(b"echo"))) + frame(obj(505, blob(b"echo"))))
    error = obj(403, string(b"IE"), string(b"000"), string(b"message"))
    seed("frames", "error", frame(obj(102, error)))
    seed("frames", "length-claims-2-gib", b"\x7f\xff\xff\xff[" + NULL + b"]")
    seed("frames", "blob-claims-4-gib", frame(obj(5, b"jb\xff\xff\xff\xff;;")))
    seed("frames", "broken-frame-in-a-broken-frame",
         frame(b"x" + frame(b"GZIP" + gzip(pair)[:-8] + bytes(8)) + frame(pair)))


def auth_factory():
    credentials = obj(111, string(b"user"), string(b"password"), string(b"seed"), integer(0))
    account = obj(112, string(b"user"), string(b"account"), string(b"password"))
    seed("auth_factory", "inside-itself", frame(obj(15, obj(15, obj(15, NULL)))))
    seed("auth_factory", "login", frame(obj(15, credentials)))
    seed("auth_factory", "login-to-an-account", frame(obj(15, account, version=1)))
    seed("auth_factory", "no-credentials", frame(obj(15, obj(103, integer(0)))))
    seed("auth_factory", "account", frame(account))


# The samples of every class are made by the targets; these are what takes more than one change.
HUGE = integer(0x7FFFFFFF)


def result_set(*rows, count=None):
    return obj(106, integer(len(rows) if count is None else count), *rows)


def row(*values):
    return obj(107, integer(len(values)), *map(blob, values))


def select_list(keys, records=None, updated=()):
    if records is None:
        return obj(404, integer(0), integer(len(keys)), *map(string, keys), integer(0))
    return obj(404, integer(0), integer(len(keys)), *map(string, keys), integer(1),
               integer(len(records)), *records, integer(len(updated)), *map(integer, updated))


def parameters(*values):
    slots = [part for value in values for part in (integer(1), integer(0), value)]
    return obj(103, integer(len(values)), *slots)


def sql_factory():
    seed("sql_factory", "bind", frame(obj(5, integer(7), parameters(blob(b"a"), NULL))))
    seed("sql_factory", "bind-claims-2-gi-parameters", frame(obj(5, integer(7), obj(103, HUGE))))
    seed("sql_factory", "rows", frame(obj(116, integer(7), result_set(
        row(b"1", b"", b"\xfe"), row(), row(b"x" * 600)))))
    seed("sql_factory", "rows-claim-2-gi", frame(obj(116, integer(7), result_set(
        row(b"1"), count=0x7FFFFFFF))))
    seed("sql_factory", "row-claims-2-gi-values", frame(obj(107, HUGE, blob(b"a"))))
    seed("sql_factory", "null-row-and-null-value", frame(result_set(
        NULL, obj(107, integer(2), NULL, blob(b"b")))))
    columns = [obj(105, string(b"%d:N%d,tableName:T,scale::,hidden:" % (i, i))) for i in (1, 2)]
    seed("sql_factory", "description", frame(obj(117, integer(7), obj(
        104, integer(3), *columns, NULL, integer(1), columns[0], version=2))))


def remote_factory():
    seed("remote_factory", "execute", frame(obj(
        220, blob(b"LIST"), select_list([b"a", b"b"]), version=1)))
    seed("remote_factory", "fewer-records-than-keys", frame(select_list(
        [b"a", b"b", b"c"], [blob(b"one"), NULL], [1, -1])))
    seed("remote_factory", "more-records-than-keys", frame(select_list([b"a"], [blob(b"b")] * 3, [3])))
    seed("remote_factory", "list-claims-2-gi-keys", frame(obj(404, integer(0), HUGE)))
    seed("remote_factory", "list-claims-2-gi-records", frame(obj(
        404, integer(0), integer(0), integer(1), HUGE)))
    seed("remote_factory", "call", frame(obj(209, string(b"SUB"), parameters(blob(b"a"), NULL))))
    seed("remote_factory", "xa", frame(obj(214, obj(402, integer(3), string(b"branch")))))
    seed("remote_factory", "key-too-long-in-utf-8", frame(b"GZIP" + gzip(
        select_list([b"\xff" * 30000]))))


def client_factory():
    seed("client_factory", "record-and-list", frame(obj(
        301, integer(0), blob(b"record"), select_list([b"k"], [blob(b"v")], [1]))))
    seed("client_factory", "nothing-but-nulls", frame(obj(301, integer(0), NULL, NULL)))
    seed("client_factory", "another-list", frame(obj(301, integer(0), NULL, obj(401, blob(b"a\xfeb")))))
    seed("client_factory", "repository", frame(obj(313, integer(4), *[blob(b"x")] * 8)))
    seed("client_factory", "inside-itself",
         frame(obj(101, integer(1), *[obj(101, integer(1))] * 4)))
    seed("client_factory", "compressed-rows", frame(b"GZIP" + gzip(obj(
        116, integer(1), result_set(*[row(b"value", b"")] * 20)))))


def agent_factory():
    seed("agent_factory", "session",
         frame(obj(15, obj(111, string(b"u"), string(b"p"), string(b""), integer(0))))
         + frame(obj(14, string(b"SELECT 1"))) + frame(obj(6, integer(1), integer(10)))
         + frame(obj(232, integer(1))))
    seed("agent_factory", "http-then-frame",
         b"POST / HTTP/1.1\r\nContent-Length: 2\r\n\r\nok" + frame(obj(219)))
    seed("agent_factory", "commit", frame(obj(231, select_list([b"k"], [blob(b"v")], [1]))))


def configurations():
    example = (CORPUS.parent.parent / "agent" / "noxd.toml").read_text()
    seed("configuration", "defaults", example.encode())
    everything = "".join(line[1:] if line.startswith("#") and line[1:2].islower() else line
                         for line in example.splitlines(keepends=True))
    seed("configuration", "everything", everything.encode())
    seed("configuration", "tls", b"""[server]
listen = "[::]:0"
plain_listener = false
[tls]
enabled = true
certificate = "c.pem"
key = "k.pem"
client_ca = "ca.pem"
require_client_certificate = true
""")
    seed("configuration", "mistakes", b"""timezone = 'UTC'
server.max_conections = 5
server.listen = "::1:7433"
[sesion]
lock_wait = 1
[[tls]]
[log.level]
x = 1
[store]
synchronous = true
""")
    seed("configuration", "no-end", b"[server]\nlisten = \"127.0.0.1")
    seed("configuration", "control-characters", b"[server]\n\"a\\u001B[2J\" = 1\nlisten = \"a\\u0000:1\"\n")
    seed("configuration", "quoted-control-character", b"[server]\nl\xD1\x98\x1A``ver]\n")
    seed("configuration", "no-utf-8", b"[server]\ntimezone = \"\xFE\xFC\"\n")
    seed("configuration", "deep", b"x = " + b"[" * 500)


def gzips():
    seed("gzip", "nothing", gzip(b""))
    seed("gzip", "text", gzip(b"a text, a text, a text"))
    seed("gzip", "zeros", gzip(bytes(5000)))
    seed("gzip", "deflate", deflate(b"a text, a text, a text"))
    seed("gzip", "stored", b"\x01\x02\x00\xfd\xffab")
    seed("gzip", "false-size", gzip(b"text")[:-4] + b"\xff\xff\xff\xff")
    seed("gzip", "false-checksum", gzip(b"text")[:-8] + b"\0\0\0\0\4\0\0\0")


def http():
    get = b"GET /index HTTP/1.1\r\nHost: here\r\n\r\n"
    post = b"POST / HTTP/1.1\r\ncontent-length: 4\r\n\r\nbody"
    seed("http", "get", b"\0\5" + get)
    seed("http", "post", b"\0\5" + post)
    seed("http", "too-large", b"\1\0" + post)
    seed("http", "two-lengths", b"\0\0" + post.replace(b"\r\n\r\n", b"\r\ncontent-length: -1\r\n\r\n"))
    seed("http", "huge-length", b"\0\0" + post.replace(b": 4", b": 99999999999999999999"))
    seed("http", "short-body", b"\0\0" + post.replace(b": 4", b": 999"))
    seed("http", "no-end", b"\0\3" + get[:-2])
    seed("http", "line-feeds", b"\0\0" + get.replace(b"\r", b""))


def strings():
    def text(data):
        return bytes([len(data)]) + data

    def op(code, string_index=0, other=1, operands=b""):
        return bytes([code, string_index, other]) + operands

    marks = text(b"a\xfdb\xfcc\xfe12\xfe\xfe3")
    seed("strings", "conversions",
         op(1, 0, 1, text("é€".encode())) + op(13) + op(14) + op(12) + op(16) + op(15))
    seed("strings", "wide", op(3, 0, 1, text(b"\x20\xac\xd8\x3d\xde\x00\xd8\x00")) + op(13) + op(12))
    seed("strings", "invalid-utf-8", op(2, 0, 1, text(b"\xf0\x80\x80\x80\xed\xa0\x80\xe2\x82"))
         + op(12) + op(14))
    seed("strings", "fields", op(2, 1, 1, marks) + op(18, 0, 1, b"\1\1\1") + op(18, 2, 1, b"\2\0\0")
         + op(20, 1, 1, b"\2\0\0") + op(21, 1, 1, b"\xfe"))
    seed("strings", "own-content", op(1, 0, 0, text(b"abc")) + op(10, 0, 0) + op(5, 0, 0)
         + op(18, 0, 0, b"\1\0\0"))
    seed("strings", "comparisons", op(1, 0, 1, text(b"abc")) + op(2, 1, 0, text(b"abd"))
         + op(17, 0, 1) + op(17, 1, 0) + op(17, 0, 2) + op(17, 2, 0))
    seed("strings", "code-pages", op(23, 0, 1, b"\1") + op(1, 0, 1, text(b"caf\xe9\xfe"))
         + op(13) + op(23, 0, 1, b"\3") + op(12) + op(23, 0, 1, b"\5") + op(14))
    seed("strings", "blobs", op(22, 0, 1, text(marks) + b"\x09\1") + op(19, 0, 1, b"\1\1\1"))


def commands():
    for name, line in {
        "list": 'LIST CUSTOMERS \'1\' \'two words\' NAME AGE HDR-SUPP ID-SUPP FIRST 10',
        "with": 'SSELECT DICT C WITH EVERY A >= 1 AND B LIKE "x...y" OR D WITH E # "" BY F BY-DSND G',
        "file": "DELETE-FILE OLD (Y",
        "saved": "get-list MINE",
        "run": "RUN TAX 12.5 \"two words\" 'quoted'",
        "like": "banana\nb...an...a",
        "numbers": "12.50\n+0012.5",
        "not-closed": 'COUNT C WITH A = "never',
    }.items():
        seed("commands", name, line.encode())


def dictionary():
    record = b"D\xfe1\xfeMD2,\xfePrice\xfdeach\xfe10R\xfeM"
    rows = b"\n12345\xfd-5\xfd\xfdmuch\xfe\n\xfe\xfd1"
    seed("dictionary", "item", record + rows)
    seed("dictionary", "expression", b"I\xfeid\xfe\xfeHeading\xfe\xfe" + rows)
    seed("dictionary", "id", b"D the id\xfe0" + rows)
    seed("dictionary", "narrow",
         b"D\xfe1\xfe\xfe\xfe1L" + "\n\u6771\u4eac e\u0301".encode() + b"\xfeabc")
    seed("dictionary", "wide", b"D\xfe1\xfe\xfe\xfe1000L\xfeM\n" + b"x\xfd" * 80)
    seed("dictionary", "wrong", b"D\xfeone\xfeQ\xfe\xfeL\xfeX")


def conversions():
    for name, codes, data in [
        ("date", b"D", b"21550\xfd-1\xfc\xfe0"),
        ("typed-dates", b"D2/E", b"31/12/26\xfd1 JAN 1968\xfd2026-12-31\xfdDecember 31, 2026"),
        ("iso", b"DI", b"-718430\xfd2933628"),
        ("parts", b"DQ", b"21550"),
        ("time", b"MTHS", b"86399\xfd9:30:59 pm"),
        ("decimal", b"MD24,$Z", b"-1234567.89\xfd$1,234.56\xfd0"),
        ("case", b"MCT", "o'neil ÉCOLE ß".encode() + b"\x80"),
        ("hex", b"MX", b"18446744073709551615\xfd-ff"),
        ("group", b"G1*2", b"a*b*c*d"),
        ("several", b"G1*1\xfdMCN\xfdMD2", b"a*1x2*c"),
        ("numbers", b"-0.0500", b"+1000000000000000000000.25"),
    ]:
        seed("conversions", name, codes + b"\n" + data)


frames()
auth_factory()
sql_factory()
remote_factory()
client_factory()
agent_factory()
configurations()
gzips()
http()
strings()
commands()
dictionary()
conversions()
