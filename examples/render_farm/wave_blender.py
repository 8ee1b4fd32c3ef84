"""The scene of wave.pov for Blender: a field of spheres, and a wave that runs through it.

usage: blender --background --python wave_blender.py -- NUMBER FRAMES WIDTH HEIGHT FILE
"""

import math
import os
import sys

import bpy
from mathutils import Vector

ROWS, SPACING = 11, 1.12
SAMPLES = 32
# From the trough of the wave to its crest: blue, violet, red, gold.
HEAT = [
    (-1.00, (0.015, 0.070, 0.330)),
    (-0.35, (0.180, 0.045, 0.420)),
    (0.20, (0.720, 0.055, 0.160)),
    (0.65, (0.980, 0.300, 0.030)),
    (1.00, (1.000, 0.720, 0.140)),
]


def heat(height):
    """Returns the colour for a height from -1 to 1."""
    for (low, one), (high, other) in zip(HEAT, HEAT[1:]):
        if height <= high:
            share = max(height - low, 0) / (high - low)
            return [a + (b - a) * share for a, b in zip(one, other)]
    return HEAT[-1][1]


def material(name, colour, metallic=0.0, roughness=0.25):
    made = bpy.data.materials.new(name)
    made.use_nodes = True
    inputs = made.node_tree.nodes["Principled BSDF"].inputs
    inputs["Base Color"].default_value = (*colour, 1)
    inputs["Metallic"].default_value = metallic
    inputs["Roughness"].default_value = roughness
    return made


def add_spheres(clock):
    bpy.ops.mesh.primitive_uv_sphere_add(segments=32, ring_count=16, radius=0.46)
    bpy.ops.object.shade_smooth()
    model = bpy.context.object
    half = (ROWS - 1) / 2
    for row in range(ROWS):
        for column in range(ROWS):
            x, y = (column - half) * SPACING, (row - half) * SPACING
            distance = math.hypot(x, y)
            height = math.cos(distance * 1.15 - 2 * math.pi * clock) * math.exp(-distance * 0.055)
            sphere = model.copy()
            sphere.data = model.data.copy()
            sphere.location = (x, y, height * 0.95)
            sphere.data.materials.append(material(f"{row} {column}", heat(height)))
            bpy.context.collection.objects.link(sphere)
    bpy.data.objects.remove(model)


def add_surroundings(clock):
    bpy.ops.mesh.primitive_plane_add(size=200, location=(0, 0, -1.75))
    floor = material("floor", (0.018, 0.024, 0.045), metallic=0.4, roughness=0.15)
    bpy.context.object.data.materials.append(floor)

    world = bpy.data.worlds.new("world")
    world.use_nodes = True
    world.node_tree.nodes["Background"].inputs["Color"].default_value = (0.05, 0.08, 0.17, 1)
    bpy.context.scene.world = world

    turn = math.radians(-90 * clock)
    bpy.ops.object.light_add(type="AREA", location=turned(-9, -7, 14, turn))
    light = bpy.context.object
    light.data.energy, light.data.size = 2600, 4
    aim(light, (0, 0, 0))

    bpy.ops.object.camera_add(location=turned(0, -10.4, 6.2, turn))
    camera = bpy.context.object
    camera.data.angle = math.radians(49)
    aim(camera, (0, 0, -0.55))
    bpy.context.scene.camera = camera


def turned(x, y, z, angle):
    """The field looks the same after a quarter turn, so the camera needs no more to loop."""
    cos, sin = math.cos(angle), math.sin(angle)
    return (x * cos - y * sin, x * sin + y * cos, z)


def aim(thing, target):
    direction = Vector(target) - thing.location
    thing.rotation_euler = direction.to_track_quat("-Z", "Y").to_euler()


def main():
    number, frames, width, height, file = sys.argv[sys.argv.index("--") + 1 :]
    bpy.ops.wm.read_factory_settings(use_empty=True)
    clock = int(number) / int(frames)
    add_spheres(clock)
    add_surroundings(clock)

    scene = bpy.context.scene
    scene.render.engine = "CYCLES"
    scene.cycles.samples = SAMPLES
    scene.cycles.use_denoising = False  # Debian builds Blender without it
    scene.cycles.seed = 1  # the same noise every time
    scene.render.resolution_x, scene.render.resolution_y = int(width), int(height)
    scene.render.filepath = os.path.abspath(file)
    scene.view_settings.view_transform = "Standard"
    bpy.ops.render.render(write_still=True)


main()
