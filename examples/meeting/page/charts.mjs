// Live plots of the statistics, and the table of the received streams.

import UPlot from '../charts/uPlot.mjs';
import { element } from './elements.mjs';

const SECONDS_SHOWN = 120;
const HEIGHT = 92;

const megabits = (bits) => bits / 1e6;
const percent = (fraction) => fraction * 100;
const framesOf = (statistics) => statistics.video_recv_stats.reduce((sum, { fps }) => sum + fps, 0);

const PLOTS = [
  {
    title: 'Bit rate, Mbit/s',
    series: [
      ['received', ({ meetingStats }) => megabits(meetingStats.total_inbound_bps)],
      ['sent', ({ meetingStats }) => megabits(meetingStats.total_outbound_bps)],
    ],
  },
  { title: 'Frames received per second', series: [['all streams', framesOf]] },
  {
    title: 'Packets lost, %',
    series: [
      ['received', ({ meetingStats }) => percent(meetingStats.instant_inbound_loss)],
      ['sent', ({ meetingStats }) => percent(meetingStats.instant_outbound_loss)],
    ],
  },
  {
    title: 'Processor, %',
    series: [
      ['meeting', ({ meetingStats }) => meetingStats.process_cpu],
      ['whole system', ({ meetingStats }) => meetingStats.system_cpu],
    ],
  },
];

export class Charts {
  #root;
  #rows;
  #history = [];
  #plots = [];

  constructor(root, rows) {
    this.#root = root;
    this.#rows = rows;
    matchMedia('(prefers-color-scheme: dark)').addEventListener('change', () => this.#make());
    new ResizeObserver(() => this.#make()).observe(root);
  }

  restart(history) {
    this.#history = history;
    this.#draw();
  }

  // `titles`: who a stream is from, by csrc.
  add(statistics, titles) {
    this.#history = [...this.#history.slice(1 - SECONDS_SHOWN), statistics];
    this.#draw();
    const streams = statistics.video_recv_stats
      .map((stream) => ({ ...stream, title: titles.get(stream.ssrc) ?? '' }))
      .sort((one, other) => one.title.localeCompare(other.title));
    this.#rows.replaceChildren(...streams.map(rowOf));
  }

  // A plot keeps the colours and the width of its creation.
  #make() {
    const width = this.#root.clientWidth;
    if (width === 0) return;
    for (const plot of this.#plots) plot.destroy();
    const colour = (name) => getComputedStyle(this.#root).getPropertyValue(`--${name}`);
    const axis = {
      stroke: colour('quiet'),
      grid: { stroke: colour('line'), width: 1 },
      ticks: { show: false },
      font: '11px system-ui, sans-serif',
    };
    this.#root.replaceChildren();
    this.#plots = PLOTS.map(({ title, series }) => {
      const names = series.map(([name], index) => {
        const key = element('span', { textContent: name });
        key.style.setProperty('--series', colour(`series-${index + 1}`));
        return key;
      });
      this.#root.append(element('h3', {}, title, ...names));
      const options = {
        width,
        height: HEIGHT,
        legend: { show: false },
        cursor: { show: false },
        padding: [6, 14, 0, 0],
        scales: {
          x: { time: false, range: () => [-SECONDS_SHOWN, 0] },
          y: { range: (_plot, _least, most) => [0, Math.max(most * 1.1, 1)] },
        },
        axes: [
          { ...axis, size: 18, gap: 2, values: (_plot, ticks) => ticks.map((at) => `${at} s`) },
          { ...axis, size: 38, gap: 3, space: 24 },
        ],
        series: [
          {},
          ...series.map((_, index) => ({
            stroke: colour(`series-${index + 1}`),
            width: 1.5,
            points: { show: false },
          })),
        ],
      };
      return new UPlot(options, [[], ...series.map(() => [])], this.#root);
    });
    this.#draw();
  }

  #draw() {
    const now = this.#history.at(-1)?.time;
    const ages = this.#history.map(({ time }) => (time - now) / 1000);
    this.#plots.forEach((plot, index) => {
      const { title, series } = PLOTS[index];
      const values = series.map(([, valueOf]) => this.#history.map(valueOf));
      plot.setData([ages, ...values]);
      const last = series.map(([name], at) => `${name} ${values[at].at(-1)?.toFixed(1) ?? '–'}`);
      plot.root.role = 'img';
      plot.root.ariaLabel = `${title}: ${last.join(', ')}`;
    });
  }
}

function rowOf({ title, width, height, fps, total_bitrate_bps, fraction_loss }) {
  const cells = [
    `${width}×${height}`,
    fps,
    megabits(total_bitrate_bps).toFixed(1),
    `${percent(fraction_loss).toFixed(1)} %`,
  ];
  const head = element('th', { scope: 'row', textContent: title, title });
  return element('tr', {}, head, ...cells.map((text) => element('td', { textContent: text })));
}
