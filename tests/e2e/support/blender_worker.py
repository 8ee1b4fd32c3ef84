"""A render worker inside Blender: renders frames with Cycles on the CPU until it is stopped.

usage: blender --background --factory-startup --python blender_worker.py -- FOLDER
"""

import sys
from itertools import count
from pathlib import Path

import bpy

folder = Path(sys.argv[sys.argv.index("--") + 1])
scene = bpy.context.scene
scene.render.engine = "CYCLES"
scene.cycles.device = "CPU"
scene.cycles.samples = 4
scene.cycles.use_denoising = False  # Debian builds Blender without the denoiser
scene.render.threads_mode = "FIXED"
scene.render.threads = 1
scene.render.resolution_x, scene.render.resolution_y = 80, 60
scene.render.resolution_percentage = 100
scene.render.image_settings.file_format = "PNG"

print("worker online", flush=True)
for frame in count():
    bpy.data.objects["Cube"].rotation_euler[2] = frame / 10
    # Under another name first, so that a frame with its own name is complete.
    unfinished = folder / "unfinished.png"
    scene.render.filepath = str(unfinished)
    bpy.ops.render.render(write_still=True)
    unfinished.rename(folder / f"frame{frame:04}.png")
    print(f"frame {frame} done", flush=True)
