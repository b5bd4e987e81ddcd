#include "gateway/Assets.h"

namespace ZELPC {

const char kStyle[] = R"css(:root {
  color-scheme: light dark;
  --back: #f6f7f9; --card: #fff; --text: #1b1f24; --quiet: #57606a; --line: #d0d7de; --link: #0b57b7;
  --good: #12692f; --bad: #b3141b; --wait: #7a4d00;
}
@media (prefers-color-scheme: dark) {
  :root {
    --back: #0f1318; --card: #171c23; --text: #e6e9ed; --quiet: #9aa5b1; --line: #303842; --link: #7db4ff;
    --good: #5fd38a; --bad: #ff8a85; --wait: #f0b95a;
  }
}
* { box-sizing: border-box; }
body { margin: 0; background: var(--back); color: var(--text); font: 16px/1.45 system-ui, sans-serif; }
header, main, footer { max-width: 76rem; margin: 0 auto; padding: 0 1rem; }
header { display: flex; flex-wrap: wrap; align-items: baseline; gap: .25rem 1.25rem; padding-top: .75rem; }
header strong { font-size: 1.1rem; }
nav { display: flex; flex-wrap: wrap; gap: .25rem 1rem; }
a { color: var(--link); }
nav a[aria-current] { color: var(--text); font-weight: 600; text-decoration: none; }
.skip { position: absolute; left: -999rem; }
.skip:focus { left: 1rem; top: .25rem; background: var(--card); padding: .25rem .5rem; }
:focus-visible { outline: 3px solid var(--link); outline-offset: 2px; }
h1 { font-size: 1.35rem; margin: 1rem 0 .5rem; }
h2 { font-size: 1.1rem; margin: 1.5rem 0 .5rem; }
table { width: 100%; border-collapse: collapse; background: var(--card); border: 1px solid var(--line); }
caption { position: absolute; clip-path: inset(50%); width: 1px; height: 1px; overflow: hidden; }
th, td { text-align: left; vertical-align: top; padding: .4rem .6rem; border-bottom: 1px solid var(--line);
  overflow-wrap: break-word; }
th { color: var(--quiet); font-weight: 600; font-size: .875rem; white-space: nowrap; }
td > div { min-width: 0; }
.quiet, footer { color: var(--quiet); }
footer { padding-top: 1.5rem; padding-bottom: 1.5rem; font-size: .875rem; }
.badge { white-space: nowrap; font-weight: 600; }
.good { color: var(--good); } .bad { color: var(--bad); } .wait { color: var(--wait); }
.alarm { border: 2px solid var(--bad); background: var(--card); padding: .5rem .75rem; margin: .75rem 0; }
.alarm ul { margin: .25rem 0; padding-left: 1.25rem; }
form.search { display: flex; flex-wrap: wrap; gap: .5rem .75rem; align-items: end; margin-bottom: .75rem; }
form.search label { display: grid; font-size: .875rem; color: var(--quiet); }
form#acts label { display: grid; width: 18rem; max-width: 100%; font-size: .875rem; color: var(--quiet); }
td button { margin: .1rem .25rem .1rem 0; }
input, select, button { font: inherit; color: inherit; background: var(--back); border: 1px solid var(--line);
  border-radius: 4px; padding: .25rem .5rem; max-width: 100%; min-height: 2rem; }
button { cursor: pointer; background: var(--card); border-color: var(--link); }
.pair { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(100%, 30rem), 1fr)); gap: 0 1.5rem; }
.pair > * { min-width: 0; }
pre { background: var(--card); border: 1px solid var(--line); padding: .6rem; overflow-x: auto; white-space: pre-wrap;
  overflow-wrap: anywhere; font-size: .8125rem; margin: 0; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: .1rem 1rem; margin: 0 0 .75rem; }
dt { color: var(--quiet); } dd { margin: 0; overflow-wrap: anywhere; }
pre span { display: block; padding-left: 1.5em; text-indent: -1.5em; }
.line { display: block; white-space: nowrap; }
.image { display: inline-block; width: 2.5rem; }
progress { width: 6rem; max-width: 100%; }
@media (max-width: 44rem) {
  thead { display: none; }
  table, tbody, tr, td { display: block; }
  tr { border-bottom: 2px solid var(--line); padding: .35rem 0; }
  td { border: 0; padding: .1rem .6rem; display: grid; grid-template-columns: 7rem 1fr; gap: .5rem; }
  td > div { overflow-wrap: anywhere; }
  td::before { content: attr(data-label); color: var(--quiet); font-size: .875rem; }
  td.none { display: none; }
}
)css";

const char kScript[] = R"js("use strict";
// Reads the page again when something happened, but never under somebody's fingers.
let news = false, busy = false;
const stream = new EventSource("/api/events");
for (const type of ["analyzer", "result", "queue", "lost"]) stream.addEventListener(type, () => { news = true; });
stream.onopen = () => { news = true; };
async function show() {
  const main = document.querySelector("main");
  const typing = main.contains(document.activeElement) && document.activeElement.matches("input, select, button");
  if (!news || busy || document.hidden || typing) return;
  news = false;
  busy = true;
  try {
    const answer = await fetch(location.href, { headers: { Accept: "text/html" } });
    const page = new DOMParser().parseFromString(await answer.text(), "text/html");
    const fresh = page.querySelector("main");
    if (answer.ok && fresh && fresh.innerHTML !== main.innerHTML) {
      const link = main.contains(document.activeElement) ? document.activeElement.getAttribute("href") : null;
      const typed = main.querySelector("[name=token]")?.value;
      main.replaceChildren(...fresh.childNodes);
      const token = main.querySelector("[name=token]");
      if (typed && token) token.value = typed;
      if (link) [...main.querySelectorAll("a")].find((a) => a.getAttribute("href") === link)?.focus();
    }
  } catch { news = true; } finally { busy = false; }
}
setInterval(show, 1000);
)js";

}  // namespace ZELPC
