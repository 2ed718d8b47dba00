// The set's ring, made of two tones; silent until somebody wants to hear it.

const TONES = [425, 480];
const ON_S = 1.2, PERIOD_S = 3.2;

export class Ringer {
  constructor() {
    this.wanted = false;
    this.ringing = false;
  }

  set(wanted) {
    this.wanted = wanted;
    this.update();
  }

  ring(ringing) {
    this.ringing = ringing;
    this.update();
  }

  update() {
    const sounds = this.wanted && this.ringing;
    if (sounds === (this.timer !== undefined)) return;
    if (sounds) {
      this.context ??= new AudioContext();
      this.context.resume();
      this.burst();
      this.timer = setInterval(() => this.burst(), PERIOD_S * 1000);
    } else {
      clearInterval(this.timer);
      this.timer = undefined;
      this.volume?.gain.setTargetAtTime(0, this.context.currentTime, 0.02);
    }
  }

  burst() {
    const start = this.context.currentTime;
    const volume = this.volume = this.context.createGain();
    volume.gain.setValueAtTime(0, start);
    for (let at = 0; at < ON_S; at += 0.1) {
      volume.gain.setTargetAtTime(0.12, start + at, 0.012);
      volume.gain.setTargetAtTime(0.03, start + at + 0.05, 0.012);
    }
    volume.gain.setTargetAtTime(0, start + ON_S, 0.03);
    volume.connect(this.context.destination);
    for (const frequency of TONES) {
      const tone = new OscillatorNode(this.context, { frequency, type: 'triangle' });
      tone.connect(volume);
      tone.start(start);
      tone.stop(start + ON_S + 0.3);
    }
  }
}
