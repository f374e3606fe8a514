"""A reference page of types in one file of HTML, with a search of its own."""

from xml.sax.saxutils import escape, quoteattr

from _KelSchema import remarks

PAGE = """<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>%(title)s</title>
<style>
:root { color-scheme: light dark; --text: #1d2430; --back: #fff; --soft: #5a6578; --line: #e3e7ee;
   --link: #1f5aa8; --bar: #22304a; --field: #fff; }
@media ( prefers-color-scheme: dark ) {
   :root { --text: #dde3ec; --back: #171b22; --soft: #96a2b6; --line: #2c3442; --link: #82b1f5;
      --bar: #0f1520; --field: #232a36; } }
body { margin: 0; font: 16px/1.5 system-ui, sans-serif; color: var( --text );
   background: var( --back ); }
header { position: sticky; top: 0; display: flex; gap: .6em 1.5em; align-items: center;
   flex-wrap: wrap; padding: .7em 2em; background: var( --bar ); color: #fff; }
h1 { margin: 0; font-size: 1.1em; }
input { flex: 1; max-width: 28em; padding: .4em .7em; font: inherit; color: var( --text );
   background: var( --field ); border: 0; border-radius: 4px; }
#found { color: #c9d3e6; }
main { max-width: 64em; margin: 0 auto; padding: 1em 2em 4em; }
section { margin: 1.6em 0; scroll-margin-top: 5em; }
section:target h2 { text-decoration: underline; text-decoration-thickness: 2px; }
h2 { margin: 0; font-size: 1.1em; overflow-wrap: anywhere; }
h2 small { margin-left: .7em; font-weight: normal; color: var( --soft ); }
code { font: .9em/1.5 ui-monospace, monospace; }
table { border-collapse: collapse; width: 100%%; margin-top: .4em; }
td { padding: .2em .8em .2em 0; border-top: 1px solid var( --line ); vertical-align: top;
   overflow-wrap: anywhere; }
td + td { color: var( --soft ); white-space: nowrap; width: 1%%; padding-right: 0; }
a { color: var( --link ); text-decoration: none; }
a:hover, a:focus { text-decoration: underline; }
[hidden] { display: none; }
@media ( max-width: 46em ) {
   header, main { padding-left: 1em; padding-right: 1em; }
   td + td { white-space: normal; width: 30%%; font-size: .9em; }
}
</style>
</head>
<body>
<header>
<h1>%(title)s</h1>
<input id="search" type="search" placeholder="Search types and attributes" aria-label="Search"
   autofocus>
<span id="found" role="status"></span>
</header>
<main>
%(sections)s</main>
<script>
const sections = [...document.querySelectorAll( "section" )];
const search = document.getElementById( "search" );
const found = document.getElementById( "found" );

// Every word must stand in the type's line or in that of one of its attributes.
function show() {
   const words = search.value.toLowerCase().split( /\\s+/ ).filter( Boolean );
   const holds = text => words.every( word => text.includes( word ) );
   let types = 0;
   for( const section of sections ) {
      const heading = section.querySelector( "h2" ).textContent.toLowerCase();
      const all = holds( heading );
      let rows = 0;
      for( const row of section.querySelectorAll( "tr" ) ) {
         row.hidden = !all && !holds( heading + " " + row.textContent.toLowerCase() );
         rows += !row.hidden;
      }
      section.hidden = !all && rows === 0;
      types += !section.hidden;
   }
   found.textContent = words.length ? types + ( types === 1 ? " type" : " types" ) : "";
}

search.addEventListener( "input", show );
show();
</script>
</body>
</html>
"""


def page(title, types):
    """The page, as str in UTF-8."""
    known = set(described["name"] for described in types)
    sections = "".join(_section(described, known) for described in types)
    return PAGE % {"title": escape(title), "sections": sections}


def _section(described, known):
    rows = "".join("<tr><td><code>%s</code></td><td>%s</td></tr>\n" % (
        _linked(attribute["signature"], known), escape(", ".join(remarks(attribute))))
                   for attribute in described["attributes"])
    name = described["name"]
    rest = described["signature"][len(name):]
    return "<section id=%s>\n<h2><code>%s%s</code><small>%s</small></h2>\n%s</section>\n" % (
        quoteattr(name), escape(name), _linked(rest, known), escape(described["kind"]),
        "<table>\n%s</table>\n" % rows if rows else "")


def _linked(signature, known):
    """The signature, in which the name of each type of the page leads there."""
    parts = []
    for word in signature.split(" "):
        core = word.strip("(),")
        name = core.split("[")[0]
        for suffix in ("::PtrConst", "::RawPtrConst", "::RawPtr", "::Ptr"):
            if name.split("(")[0].endswith(suffix):
                name = name.split("(")[0][:-len(suffix)]
        name = name.split("(")[0]
        if name in known:
            link = "<a href=%s>%s</a>" % (quoteattr("#" + name), escape(name))
            word = escape(word).replace(escape(name), link, 1)
        else:
            word = escape(word)
        parts.append(word)
    return " ".join(parts)
