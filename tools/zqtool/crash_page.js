// Shows the groups that hold the text of the filter.
const filter = $("filter"), shown = $("shown"), groups = [...$("groups").children];

function showFiltered()
{
    const wanted = filter.value.toLowerCase();
    let count = 0;
    for (const group of groups)
    {
        group.hidden = !group.textContent.toLowerCase().includes(wanted);
        count += group.hidden ? 0 : 1;
    }
    shown.textContent = wanted ? `${count} of ${groups.length} groups` : "";
}

filter.addEventListener("input", showFiltered);
showFiltered();
document.documentElement.dataset.ready = "1";
