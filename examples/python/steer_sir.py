# SPDX-License-Identifier: MIT
"""Steers the SIR epidemic that quor-simd serves: lowers the infection rate
beta to a third halfway through the run, prints the epidemic as it goes and
saves it as sir-steered.png. Usage: python3 steer_sir.py [PORT]"""
import sys

import quor

port = int(sys.argv[1]) if len(sys.argv) > 1 else 3000
with quor.connect("127.0.0.1", port) as client:
    client.attach("SIR epidemic")
    client.reset_parameters()  # whatever earlier clients steered
    beta = client.parameters["beta"]
    client.speed(100)  # output points per second
    client.start("continuous", start=0, end=50, step=0.25)
    steered = False
    for point in client.watch():  # every output point, as the server makes it
        if point.index % 20 == 0:
            print(f"t = {point.time:4.1f}:", ", ".join(
                f"{place} = {amount:5.1f}" for place, amount in point.marking.items()))
        if point.time >= 25 and not steered:
            client.set_parameters(beta=beta / 3)  # holds from the next point on
            steered = True
            print(f"t = {point.time:4.1f}: beta lowered to {beta / 3:g}")
    print("the run:", client.state())
    results = client.results()  # times, values (places x points), names
    infected = results.row("I")
    print(f"I peaked at {infected.max():.1f} at t = {results.times[infected.argmax()]:g}")
    results.plot("sir-steered.png", title="SIR epidemic, beta lowered to a third during the run")
