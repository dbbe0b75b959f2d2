"use strict";
(() => {
  const picture = document.documentElement;
  const whole = Number(picture.dataset.whole);
  const details = document.getElementById("details");
  const note = details.textContent;
  const boxes = Array.from(document.querySelectorAll(".box"), (element) => ({
    element,
    from: Number(element.dataset.from),
    width: Number(element.dataset.width),
    title: element.firstElementChild.textContent,
  }));

  // Shows the part of the picture from one sample on, so many samples wide.
  function show(from, width) {
    for (const box of boxes) {
      const start = Math.max(box.from, from);
      const end = Math.min(box.from + box.width, from + width);
      const style = box.element.style;
      if (end <= start) {
        style.display = "none";
        continue;
      }
      style.display = "";
      box.element.setAttribute("x", 100 * (start - from) / width + "%");
      box.element.setAttribute("width", 100 * (end - start) / width + "%");
      box.element.classList.toggle("around", box.width > width);
    }
  }

  // Marks the functions whose line has the text in it, and says how many of all samples were in them:
  // a box inside a marked one is not counted again.
  function search(text) {
    const wanted = text.toLowerCase();
    let counted = 0;
    let countedTo = 0;
    let matches = 0;
    const found = boxes.filter((box) => {
      const match = wanted !== "" && box.title.toLowerCase().includes(wanted);
      box.element.classList.toggle("found", match);
      return match;
    });
    found.sort((a, b) => a.from - b.from || b.width - a.width);
    for (const box of found) {
      ++matches;
      const end = box.from + box.width;
      if (end > countedTo) {
        counted += end - Math.max(box.from, countedTo);
        countedTo = end;
      }
    }
    result.textContent = wanted === "" ? ""
        : `${matches} boxes, ${(100 * counted / whole).toFixed(2)}% of all samples`;
  }

  // The search field is HTML inside the picture.
  function make(name, parent, properties) {
    const element = document.createElementNS("http://www.w3.org/1999/xhtml", name);
    Object.assign(element, properties);
    parent.append(element);
    return element;
  }
  const frame = document.createElementNS("http://www.w3.org/2000/svg", "foreignObject");
  for (const [name, value] of [["x", "40%"], ["y", 0], ["width", "60%"], ["height", 58]]) {
    frame.setAttribute(name, value);
  }
  picture.append(frame);
  const bar = make("div", frame, { className: "search" });
  const field = make("input", bar, { type: "search", placeholder: "Search (press /)" });
  const all = make("button", bar, { textContent: "Show all" });
  const result = make("output", bar, {});

  function showAll() {
    show(0, whole);
  }
  field.addEventListener("input", () => search(field.value));
  all.addEventListener("click", showAll);
  document.addEventListener("keydown", (event) => {
    if (event.key === "/" && document.activeElement !== field) {
      event.preventDefault();
      field.focus();
    } else if (event.key === "Escape") {
      field.value = "";
      search("");
      showAll();
    }
  });
  for (const box of boxes) {
    box.element.addEventListener("click", () => show(box.from, box.width));
    box.element.addEventListener("mouseenter", () => { details.textContent = box.title; });
    box.element.addEventListener("mouseleave", () => { details.textContent = note; });
  }
})();
