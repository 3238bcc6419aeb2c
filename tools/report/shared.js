"use strict";

// What the pages of one capture and of many share.

const byId = (id) => document.getElementById(id);

// What the tool knows of the run. All of it is put in as text, never as markup.
let data = JSON.parse(byId("data").textContent);

function make(name, text, className) {
  const element = document.createElement(name);
  if (text !== undefined) element.textContent = text;
  if (className) element.className = className;
  return element;
}

function showTitle() {
  byId("command").textContent = `bokehnode ${data.command}`;
  byId("title").textContent = data.title;
  document.title = `${data.title} – ${data.command}`;
}
