"""Python text evaluated in __main__, and what is told of its failures."""

import codecs
import collections
import linecache
import sys
import traceback

# The compiler looks for this one where a unicode literal is not ASCII. The first look imports it,
# and would wait for the import lock.
codecs.lookup("utf-32-be")

FILE_NAME = "<agent>"  # of the code that is made of a text
FAILURE_LIMIT = 2000  # bytes; a client with a small buffer loses what does not fit
_MESSAGE_LIMIT = 1200
_LINE_LIMIT = 160
_FRAMES = 12


def evalText(text):
    """The value of an expression, as a str: unicode becomes UTF-8, a str stays as it is."""
    code = _compiled(text.lstrip(" \t"), "eval")
    return asStr(eval(code, _namespace()))


def execText(text):
    """Runs statements; gives an empty str."""
    exec _compiled(text, "exec") in _namespace()
    return ""


def asStr(value):
    """str(value), but UTF-8 where that is unicode beyond ASCII."""
    if isinstance(value, unicode):
        return _utf8(value)
    try:
        return str(value)
    except UnicodeEncodeError:
        return _utf8(unicode(value))


def failureText(text, error_type, error, trace):
    """The last lines of the traceback and "Type: message", at most FAILURE_LIMIT bytes."""
    try:
        message = _cut(_messageText(error_type, error), _MESSAGE_LIMIT)
        room = FAILURE_LIMIT - len(message) - len(_HEAD) - len(_LEFT_OUT)
        frames = _frameTexts(text, trace, room)
        return "".join(frames) + message
    except:  # a failing __str__ may raise anything, and memory may be short
        return "a failure that cannot be put in words"


_HEAD = "Traceback (most recent call last):\n"
_LEFT_OUT = "  ...\n"


def _compiled(text, mode):
    if not _decodes(codecs.ascii_decode, text) and _decodes(codecs.utf_8_decode, text):
        # Else the bytes of a unicode literal would be taken for Latin-1.
        if not text.startswith(codecs.BOM_UTF8):
            text = codecs.BOM_UTF8 + text
    return compile(text, FILE_NAME, mode, 0, True)


# The functions themselves, again to look for nothing by its name.
def _utf8(value):
    return codecs.utf_8_encode(value)[0]


def _decodes(decode, text):
    try:
        decode(text, "strict")
        return True
    except UnicodeDecodeError:
        return False


def _namespace():
    return sys.modules["__main__"].__dict__


def _messageText(error_type, error):
    if isinstance(error, SyntaxError):
        lines = traceback.format_exception_only(error_type, error)
        return "".join(_cut(line.rstrip("\n"), _LINE_LIMIT) + "\n" for line in lines).rstrip("\n")
    try:
        message = asStr(error)
    except:
        message = "<without a text: its __str__ fails>"
    name = error_type.__name__
    return "%s: %s" % (name, message) if message else name


def _frameTexts(text, trace, room):
    """The innermost frames that fit, behind a headline; nothing for a traceback without any."""
    while trace is not None and _isOwn(trace.tb_frame):
        trace = trace.tb_next
    outermost = trace
    kept = collections.deque(maxlen=_FRAMES)
    count = 0
    while trace is not None:
        kept.append(trace)
        count += 1
        trace = trace.tb_next
    texts = []
    while kept:
        frame = _frameText(kept[-1], text if kept[-1] is outermost else None)
        if len(frame) > room:
            break
        kept.pop()
        room -= len(frame)
        texts.append(frame)
    if texts and len(texts) < count:
        texts.append(_LEFT_OUT)
    return [_HEAD] + texts[::-1] if texts else []


def _isOwn(frame):
    return frame.f_globals.get("__name__") in ("_PyServerLoop", __name__)


def _frameText(trace, text):
    """`text` is what the frame runs, if that is known; else its file is looked at."""
    code = trace.tb_frame.f_code
    if text is not None and code.co_filename == FILE_NAME and code.co_name == "<module>":
        source = "".join(text.splitlines()[trace.tb_lineno - 1:trace.tb_lineno])
    else:
        source = linecache.getline(code.co_filename, trace.tb_lineno, trace.tb_frame.f_globals)
    place = '  File "%s", line %d, in %s\n' % (
        _cut(code.co_filename, _LINE_LIMIT), trace.tb_lineno, _cut(code.co_name, _LINE_LIMIT))
    source = source.strip()
    return place + "    %s\n" % _cut(source, _LINE_LIMIT) if source else place


def _cut(text, limit):
    if len(text) <= limit:
        return text
    tail = "... (%d bytes more)"
    kept = limit - len(tail) - 8
    return text[:kept] + tail % (len(text) - kept)
