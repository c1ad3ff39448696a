// Finds pages, functions, properties and headings by a part of their name; names.js lists them.
const box = document.getElementById("find"), found = document.getElementById("found"), pages = document.getElementById("pages");
const root = document.documentElement.dataset.root;
const most = 80;

function show() {
  const wanted = box.value.trim().toLowerCase();
  pages.hidden = wanted !== "";
  found.hidden = wanted === "";
  const hits = wanted === "" ? [] : names.filter(([name]) => name.toLowerCase().includes(wanted));
  hits.sort((a, b) => b[0].toLowerCase().startsWith(wanted) - a[0].toLowerCase().startsWith(wanted));
  found.replaceChildren(...hits.slice(0, most).map(([name, kind, place]) => {
    const row = document.createElement("li"), link = document.createElement("a"), small = document.createElement("small");
    link.href = root + "/" + place;
    link.textContent = name;
    small.textContent = " " + kind;
    row.append(link, small);
    return row;
  }));
  if (wanted !== "" && hits.length === 0) found.textContent = "nothing has this name";
}

box.hidden = false;
box.addEventListener("input", show);
box.addEventListener("keydown", event => {
  if (event.key === "Enter" && found.querySelector("a")) location.href = found.querySelector("a").href;
  if (event.key === "Escape") box.value = "", show();
});
document.addEventListener("keydown", event => {
  if (event.key === "/" && document.activeElement !== box) event.preventDefault(), box.focus();
});
