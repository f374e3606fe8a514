"""The page of kel-browse, in one file of HTML."""

from xml.sax.saxutils import escape

_STYLE = """
:root { color-scheme: light dark; --text: #1d2430; --back: #fff; --soft: #5a6578; --line: #e3e7ee;
   --side: #f5f7fa; --link: #1f5aa8; --bar: #22304a; --fresh: #ffe9a8; --wrong: #b3261e; }
@media ( prefers-color-scheme: dark ) {
   :root { --text: #dde3ec; --back: #171b22; --soft: #96a2b6; --line: #2c3442; --side: #1d232d;
      --link: #82b1f5; --bar: #0f1520; --fresh: #5c4a10; --wrong: #ff8a80; } }
* { box-sizing: border-box; }
body { margin: 0; height: 100vh; display: grid; grid-template: auto auto 1fr / minmax( 15em, 22em ) 1fr;
   font: 15px/1.5 system-ui, sans-serif; color: var( --text ); background: var( --back ); }
header, #notice { grid-column: 1 / -1; padding: .6em 1.4em; }
header { display: flex; gap: 1.2em; align-items: baseline; background: var( --bar ); color: #fff; }
header a { margin-left: auto; color: #c9d9f5; }
header span { color: #aab7cd; font-size: .9em; }
h1 { margin: 0; font-size: 1.1em; }
#notice { background: var( --wrong ); color: var( --back ); font-weight: 600; }
.gone nav, .gone main { opacity: .5; }
nav { overflow: auto; padding: .8em .8em 2em; background: var( --side );
   border-right: 1px solid var( --line ); }
nav ul { list-style: none; margin: 0; padding-left: 1.15em; }
nav > ul { padding-left: 0; }
nav li > div { display: flex; gap: .15em; align-items: baseline; border-radius: 4px;
   padding: .05em .3em; white-space: nowrap; }
nav .here { background: var( --line ); }
nav small { margin-left: .5em; color: var( --soft ); overflow: hidden; text-overflow: ellipsis; }
.fold { width: 1.4em; padding: 0; border: 0; background: none; color: var( --soft ); }
main { overflow: auto; padding: 1.1em 1.6em 4em; min-width: 0; }
h2 { margin: 0; font-size: 1.25em; overflow-wrap: anywhere; }
h3 { margin: 1.6em 0 .3em; font-size: 1em; color: var( --soft ); font-weight: 600; }
p { margin: .2em 0; color: var( --soft ); }
table { border-collapse: collapse; width: 100%; }
td, th { padding: .3em .9em .3em .3em; border-top: 1px solid var( --line ); text-align: left;
   vertical-align: top; font-weight: normal; }
th { width: 1%; white-space: nowrap; }
td { overflow-wrap: anywhere; }
.about { width: 34%; color: var( --soft ); font-size: .9em; }
.members td, .members th { padding-left: 1.4em; }
code, .value { font: .92em/1.5 ui-monospace, monospace; }
.value.none { color: var( --soft ); }
.value.error, .failed { color: var( --wrong ); }
.changed { animation: fresh 4s ease-out; border-radius: 3px; }
@keyframes fresh { 0%, 40% { background: var( --fresh ); } 100% { background: transparent; } }
a { color: var( --link ); text-decoration: none; }
a:hover, a:focus { text-decoration: underline; }
button { font: inherit; font-size: .9em; color: var( --text ); background: var( --side );
   border: 1px solid var( --line ); border-radius: 4px; padding: .1em .7em; cursor: pointer; }
button:hover { border-color: var( --soft ); }
button:disabled { color: var( --soft ); cursor: default; }
dialog { max-width: 34em; width: 92%; padding: 1.2em 1.5em; color: var( --text );
   background: var( --back ); border: 1px solid var( --soft ); border-radius: 8px; }
dialog::backdrop { background: #0008; }
dialog label { display: block; margin: .7em 0; }
dialog input, dialog select { display: block; width: 100%; font: inherit; padding: .35em .5em;
   color: inherit; background: var( --side ); border: 1px solid var( --line ); border-radius: 4px; }
#buttons { display: flex; gap: .8em; justify-content: flex-end; margin-top: 1.2em; }
#run { background: var( --link ); border-color: var( --link ); color: var( --back ); }
[hidden] { display: none !important; }
@media ( max-width: 46em ) {
   body { display: block; height: auto; }
   nav { max-height: 38vh; border-right: 0; border-bottom: 1px solid var( --line ); }
   main { padding: 1em 1em 3em; overflow: visible; }
   .about { display: none; }
   th { white-space: normal; overflow-wrap: anywhere; width: 34%; }
}
"""

_SCRIPT = r"""
const element = id => document.getElementById( id );
const open = new Map( [ [ "/", 0 ] ] );   // directories of the tree, and their first member shown
const lists = new Map();                  // collections of the entity, likewise
let path = "/";
let page = 0;                             // how many members an answer has at most
let serial = 0;
let timer = 0;
let treeShown = "";
let entityShown = "";

history.replaceState( null, "", "/" + location.hash );   // without the token

function make( name, attributes, ...children ) {
   const made = document.createElement( name );
   Object.assign( made, attributes );
   made.append( ...children );
   return made;
}

const button = ( text, action, attributes ) =>
   make( "button", { type: "button", onclick: action, ...attributes }, text );
const linkTo = target =>
   make( "a", { href: "#" + encodeURI( target ).replace( /[?#]/g, encodeURIComponent ) } );

async function ask( what, question ) {
   let reply;
   try {
      reply = await fetch( "/" + what, { method: "POST", body: JSON.stringify( question ) } );
   } catch {
      throw new Error( "kel-browse has ended" );
   }
   const answer = await reply.json();
   if( !reply.ok ) {
      throw Object.assign( new Error( answer.error ), { status: reply.status } );
   }
   return answer;
}

// The tree

function folder( name, target, directories ) {
   const answer = directories[target];
   const list = make( "ul", {} );
   if( !answer || answer.error ) {
      list.append( make( "li", { className: "failed" }, answer ? answer.error : "" ) );
      return list;
   }
   const turn = ( text, start ) => list.append( make( "li", {}, button( text, () => {
      open.set( target, start );
      refresh();
   } ) ) );
   if( answer.start > 0 ) {
      turn( "before these", Math.max( 0, answer.start - page ) );
   }
   for( const entry of answer.entries ) {
      list.append( entry.error ? make( "li", { className: "failed" }, entry.error )
                               : row( entry.name, entry.path, entry, directories ) );
   }
   const next = answer.start + answer.entries.length;
   if( next < answer.count && answer.entries.length ) {
      turn( answer.count - next + " more", next );
   }
   return list;
}

function row( name, target, entry, directories ) {
   const isOpen = open.has( target );
   const fold = button( entry.isDirectory ? isOpen ? "\u25be" : "\u25b8" : "", () => {
      isOpen ? open.delete( target ) : open.set( target, 0 );
      refresh();
   }, { className: "fold", disabled: !entry.isDirectory,
      ariaLabel: ( isOpen ? "close " : "open " ) + name } );
   const link = linkTo( target );
   link.textContent = name;
   const line = make( "div", { className: target === path ? "here" : "" }, fold, link,
      make( "small", {}, entry.type ) );
   const item = make( "li", {}, line );
   if( entry.isDirectory && isOpen ) {
      item.append( folder( name, target, directories ) );
   }
   return item;
}

function showTree( directories ) {
   const shown = JSON.stringify( [ path, directories ] );
   if( shown === treeShown ) {
      return;
   }
   treeShown = shown;
   const root = row( "/", "/", { isDirectory: true, type: "" }, directories );
   element( "tree" ).replaceChildren( make( "ul", {}, root ) );
}

// An entity

function put( cell, value ) {
   const key = JSON.stringify( value );
   if( cell.dataset.shown === key ) {
      return;
   }
   if( cell.dataset.shown !== undefined ) {
      cell.dataset.changes = 1 + Number( cell.dataset.changes || 0 );
      cell.classList.remove( "changed" );
      void cell.offsetWidth;   // begins the animation anew
      cell.classList.add( "changed" );
   }
   cell.dataset.shown = key;
   const text = value.path ? linkTo( value.path ) : make( "span", {} );
   text.textContent = value.text;
   text.className = "value " + value.kind;
   cell.replaceChildren( text );
}

function attributeRow( attribute ) {
   const cell = make( "span", {} );
   const holder = make( "td", {}, cell );
   const line = make( "tr", {}, make( "th", {}, make( "code", {}, attribute.name ) ), holder,
      make( "td", { className: "about" }, make( "code", {}, typeOf( attribute ) ),
         attribute.remarks ? " \u2014 " + attribute.remarks : "" ) );
   cell.dataset.name = attribute.name;
   if( attribute.value.kind === "collection" ) {
      holder.append( " ", button( lists.has( attribute.name ) ? "hide" : "show", event => {
         lists.has( attribute.name ) ? lists.delete( attribute.name )
                                     : lists.set( attribute.name, 0 );
         event.target.textContent = lists.has( attribute.name ) ? "hide" : "show";
         refresh();
      } ) );
      const members = make( "td", { colSpan: 3 } );
      members.dataset.members = attribute.name;
      return [ line, make( "tr", { className: "members", hidden: true }, members ) ];
   }
   return [ line ];
}

const typeOf = described => described.signature.slice( described.name.length + 3 );

function functionRow( described ) {
   const result = make( "span", {} );
   result.dataset.result = described.name;
   const press = button( "Call\u2026", () => prepareCall( described ), { disabled: !described.callable } );
   if( !described.callable ) {
      press.title = "It takes what cannot be given here.";
   }
   return make( "tr", {}, make( "th", {}, make( "code", {}, described.name ) ),
      make( "td", {}, press, " ", result ),
      make( "td", { className: "about" }, make( "code", {}, typeOf( described ) ) ) );
}

function buildEntity( entity ) {
   const type = make( "a", { href: "/types#" + entity.type, target: "_blank", rel: "noopener" },
      entity.type );
   const rest = entity.signature.slice( entity.type.length );
   const parts = [ make( "h2", {}, entity.path ), make( "p", {}, type, make( "code", {}, rest ) ),
      make( "h3", {}, "Attributes" ),
      make( "table", { id: "attributes" }, ...entity.attributes.flatMap( attributeRow ) ) ];
   if( entity.functions.length ) {
      parts.push( make( "h3", {}, "Functions" ),
         make( "table", { id: "functions" }, ...entity.functions.map( functionRow ) ) );
   }
   element( "entity" ).replaceChildren( ...parts );
}

function showEntity( entity, collections ) {
   if( entity.error ) {
      entityShown = "";
      element( "entity" ).replaceChildren( make( "h2", {}, path ),
         make( "p", { className: "failed" }, entity.error ) );
      return;
   }
   const shape = JSON.stringify( [ entity.path, entity.type,
      entity.attributes.map( each => [ each.name, each.value.kind === "collection" ] ) ] );
   if( shape !== entityShown ) {
      entityShown = shape;
      buildEntity( entity );
   }
   for( const attribute of entity.attributes ) {
      put( document.querySelector( `[data-name="${CSS.escape( attribute.name )}"]` ), attribute.value );
   }
   for( const cell of document.querySelectorAll( "[data-members]" ) ) {
      showMembers( cell, collections[cell.dataset.members] );
   }
}

// The members of a collection

function showMembers( cell, answer ) {
   const name = cell.dataset.members;
   cell.parentNode.hidden = !answer || !lists.has( name );
   if( !answer ) {
      cell.replaceChildren();
      return;
   }
   if( answer.error ) {
      cell.replaceChildren( make( "p", { className: "failed" }, answer.error ) );
      return;
   }
   const shape = JSON.stringify( [ answer.start, answer.count, answer.members.map( each => each[0] ) ] );
   if( shape !== cell.dataset.shape || !cell.firstChild ) {
      cell.dataset.shape = shape;
      buildMembers( cell, name, answer );
   }
   for( const each of cell.querySelectorAll( "[data-member]" ) ) {
      put( each, answer.members[each.dataset.member][1] );
   }
}

function buildMembers( cell, name, answer ) {
   const known = new Map( [ ...cell.querySelectorAll( "tr[data-key]" ) ].map(
      each => [ each.dataset.key, each ] ) );
   const rows = answer.members.map( ( [ key ], number ) => {
      const line = known.get( key.text ) || memberRow( key );
      line.querySelector( "span" ).dataset.member = number;
      return line;
   } );
   const turn = ( text, start ) => button( text, () => {
      lists.set( name, start );
      refresh();
   } );
   const next = answer.start + rows.length;
   cell.replaceChildren( make( "table", {}, ...rows ),
      ...answer.start > 0 ? [ turn( "before these", Math.max( 0, answer.start - page ) ) ] : [],
      ...next < answer.count && rows.length ? [ turn( answer.count - next + " more", next ) ] : [] );
}

function memberRow( key ) {
   const line = make( "tr", {}, make( "th", {}, make( "code", {}, key.text ) ),
      make( "td", {}, make( "span", {} ) ) );
   line.dataset.key = key.text;
   return line;
}

// A call, which nothing but a press begins

function prepareCall( described ) {
   const inputs = described.arguments.map( each => {
      const input = each.kind === "enum"
         ? make( "select", {}, ...each.choices.map( choice => make( "option", {}, choice ) ) )
         : make( "input", { autocomplete: "off", spellcheck: false,
            placeholder: { path: "the full name of an entity", text: "text" }[each.kind] || "" } );
      return input;
   } );
   const target = path;
   element( "what" ).textContent = `Call ${described.name} of ${target}?`;
   element( "arguments" ).replaceChildren( ...described.arguments.map( ( each, number ) =>
      make( "label", {}, make( "code", {}, `${each.name} : ${each.type}` ), inputs[number] ) ) );
   element( "run" ).onclick = () => {
      element( "sure" ).close();
      call( target, described.name, inputs.map( input => input.value ) );
   };
   element( "sure" ).showModal();
}

async function call( target, name, values ) {
   const told = document.querySelector( `[data-result="${CSS.escape( name )}"]` );
   put( told, { kind: "none", text: "\u2026" } );
   let value;
   try {
      const answer = await ask( "call", { entity: target, function: name, arguments: values } );
      value = answer.error ? { kind: "error", text: answer.error } : answer.result;
   } catch( failure ) {
      value = { kind: "error", text: failure.message };
   }
   put( told, value );
   refresh();
}

// The round: one question at a time, and none while nobody looks.

function showNotice( text ) {
   element( "notice" ).textContent = text;
   element( "notice" ).hidden = !text;
   document.body.classList.toggle( "gone", Boolean( text ) );
}

function show( answer ) {
   showNotice( "" );
   page = answer.page;
   element( "process" ).textContent = "process " + answer.process;
   showTree( answer.directories );
   showEntity( answer.entity, answer.collections );
}

async function refresh() {
   clearTimeout( timer );
   const mine = ++serial;
   let pause = 1000;
   try {
      const answer = await ask( "view", { entity: path, directories: Object.fromEntries( open ),
         collections: Object.fromEntries( lists ) } );
      if( mine === serial ) {
         show( answer );
      }
   } catch( failure ) {
      if( mine === serial ) {
         showNotice( failure.message + "; still trying" );
      }
      // Each question that a stuck agent has not answered keeps a thread of it.
      pause = failure.status === 504 ? 60000 : pause;
   }
   if( mine === serial && !document.hidden ) {
      timer = setTimeout( refresh, pause );
   }
}

function go() {
   try {
      path = decodeURIComponent( location.hash.slice( 1 ) ) || "/";
   } catch {
      path = location.hash.slice( 1 );
   }
   lists.clear();
   entityShown = "";
   for( let at = path.lastIndexOf( "/" ); at > 0; at = path.lastIndexOf( "/", at - 1 ) ) {
      open.has( path.slice( 0, at ) ) || open.set( path.slice( 0, at ), 0 );
   }
   refresh();
}

element( "arguments" ).addEventListener( "keydown", event => {
   if( event.key === "Enter" ) {
      element( "run" ).click();
   }
} );
element( "cancel" ).onclick = () => element( "sure" ).close();
window.addEventListener( "hashchange", go );
document.addEventListener( "visibilitychange", () => document.hidden || refresh() );
go();
"""

_PAGE = """<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<link rel="icon" href="data:,">
<title>%(title)s</title>
<style>%(style)s</style>
</head>
<body>
<header>
<h1>%(title)s</h1>
<span id="process"></span>
<a href="/types" target="_blank" rel="noopener">Types</a>
</header>
<div id="notice" role="alert" hidden></div>
<nav id="tree" aria-label="Directories"></nav>
<main id="entity"></main>
<dialog id="sure" aria-labelledby="what">
<h2 id="what"></h2>
<p>It runs in the agent, and may change it.</p>
<div id="arguments"></div>
<div id="buttons"><button type="button" id="cancel">Cancel</button><button type="button"
   id="run">Call</button></div>
</dialog>
<script>
%(script)s</script>
</body>
</html>
"""


def page(agent):
    """The page, as str in UTF-8."""
    return _PAGE % {"title": escape(agent), "style": _STYLE, "script": _SCRIPT}
