// Draws the page.

byId(':page').hidden = false;
new ResizeObserver(([{target}]) => root.style.setProperty('--bar-height', `${target.offsetHeight}px`)).observe(byId(':bar'));
const example = model.classes ? 'class:code' : model.profile ? 'time>1' : 'size>100';
byId(':filter').placeholder = `name, ${example}`;
drawCards();
drawTable();
drawMap();
startGraph();
startListings();
startKeys();
startSorted();
redraw();
goToFragment();
