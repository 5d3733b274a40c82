// The divider between the pictures: dragged with mouse, pen or finger, or moved with the slider below.
for (const figure of document.querySelectorAll('.compare')) {
  const stage = figure.querySelector('.stage');
  const slider = figure.querySelector('input');
  const place = (percent) => {
    const cut = Math.min(100, Math.max(0, percent));
    slider.value = cut;
    slider.setAttribute('aria-valuetext', Math.round(cut) + ' % of the width before correction');
    stage.style.setProperty('--cut', cut + '%');
  };
  const follow = (event) => {
    const box = stage.getBoundingClientRect();
    place(100 * (event.clientX - box.left) / box.width);
  };
  stage.addEventListener('pointerdown', (event) => {
    stage.setPointerCapture(event.pointerId);
    follow(event);
  });
  stage.addEventListener('pointermove', (event) => {
    if (stage.hasPointerCapture(event.pointerId)) {
      follow(event);
    }
  });
  slider.addEventListener('input', () => place(Number(slider.value)));
  slider.hidden = false;
  figure.classList.add('live');
  place(50);
}
