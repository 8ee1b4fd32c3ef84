// A field of spheres, and a wave that runs through it. `clock` runs from 0 to 1 and the animation
// loops. Nothing here draws random numbers (no radiosity, no jitter), so that every machine
// computes the same picture whatever its number of threads.
#version 3.7;
global_settings {
  assumed_gamma 1.0
  max_trace_level 6
}

#declare Rows = 11;
#declare Spacing = 1.12;
#declare Half = (Rows - 1) / 2;

// The field looks the same after a quarter turn, so the camera needs no more than that to loop.
camera {
  location <0, 6.2, -10.4>
  look_at <0, -0.55, 0>
  right x * image_width / image_height
  angle 49
  rotate y * 90 * clock
}

light_source {
  <-9, 14, -7>
  color rgb <1.0, 0.93, 0.82> * 1.25
  area_light <3, 0, 0>, <0, 0, 3>, 4, 4
  adaptive 1
  rotate y * 90 * clock
}
light_source {
  <12, 7, 3>
  color rgb <0.25, 0.38, 0.62> * 0.9
  shadowless
  rotate y * 90 * clock
}

sky_sphere {
  pigment {
    gradient y
    color_map {
      [0.00 color rgb <0.015, 0.020, 0.045>]
      [0.35 color rgb <0.045, 0.070, 0.150>]
      [1.00 color rgb <0.160, 0.240, 0.420>]
    }
  }
}

plane {
  y, -1.75
  pigment { color rgb <0.018, 0.024, 0.045> }
  finish { ambient 0 diffuse 0.7 specular 0.2 roughness 0.02 reflection { 0.10, 0.55 } }
}

// From the trough of the wave to its crest: blue, violet, red, gold.
#declare Heat = spline {
  linear_spline
  -1.00, <0.015, 0.070, 0.330>,
  -0.35, <0.180, 0.045, 0.420>,
   0.20, <0.720, 0.055, 0.160>,
   0.65, <0.980, 0.300, 0.030>,
   1.00, <1.000, 0.720, 0.140>
}

#for (Row, 0, Rows - 1)
  #for (Column, 0, Rows - 1)
    #local X = (Column - Half) * Spacing;
    #local Z = (Row - Half) * Spacing;
    #local Distance = sqrt(X * X + Z * Z);
    #local Height = cos(Distance * 1.15 - 2 * pi * clock) * exp(-Distance * 0.055);
    #local Colour = Heat(Height);
    sphere {
      <X, Height * 0.95, Z>, 0.46
      pigment { color rgb Colour }
      finish {
        ambient 0
        emission 0.10
        diffuse 0.75
        specular 0.55
        roughness 0.012
        reflection { 0.05, 0.40 fresnel on }
        conserve_energy
      }
      interior { ior 1.5 }
    }
  #end
#end
