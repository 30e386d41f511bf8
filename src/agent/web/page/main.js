const answer = await fetch("/v1/page");
const page = await answer.json();
document.querySelector("#state").textContent = `${page.store}: ${page.first} to ${page.last}`;
export {};
